#include "PulseAudioTestFixture.h"
#include "capture/CaptureDeviceErrors.h"
#include "capture/pulse/PulseAudioDeviceService.h"
#include "support/Thrown.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace rilo {
namespace {

using testing::thrownMessage;

class PulseAudioDeviceServiceTest : public testing::PulseAudioTest {
protected:
    PulseAudioDeviceService service;
};

MicrophoneDeviceDescriptor withID(const std::vector<MicrophoneDeviceDescriptor>& devices,
                                  const std::string& id) {
    const auto found = std::ranges::find(devices, id, &MicrophoneDeviceDescriptor::id);
    return found == devices.end() ? MicrophoneDeviceDescriptor{} : *found;
}

TEST_F(PulseAudioDeviceServiceTest, ListsSourcesButNotMonitorsAsMicrophones) {
    const std::vector<MicrophoneDeviceDescriptor> microphones = service.microphones();

    ASSERT_EQ(microphones.size(), 2U);
    const MicrophoneDeviceDescriptor sine = withID(microphones, "rilo_sine");
    EXPECT_TRUE(sine.isSystemDefault);
    EXPECT_NE(sine.name.find("440"), std::string::npos) << sine.name; // the server's description
    EXPECT_FALSE(withID(microphones, "rilo_quiet").isSystemDefault);
}

TEST_F(PulseAudioDeviceServiceTest, ResolvesTheDefaultANamedOneOrFails) {
    const std::vector<MicrophoneDeviceDescriptor> microphones = service.microphones();

    EXPECT_EQ(service.resolveMicrophone(std::nullopt), withID(microphones, "rilo_sine"));
    EXPECT_EQ(service.resolveMicrophone("default"), withID(microphones, "rilo_sine"));
    EXPECT_EQ(service.resolveMicrophone("rilo_quiet"), withID(microphones, "rilo_quiet"));
    EXPECT_EQ(thrownMessage<MicrophoneCaptureError>([&] { service.resolveMicrophone("rilo_unplugged"); }),
              "所选麦克风已不可用，请重新选择。");

    // With the default microphone gone, the first one left stands in for it.
    server().control({"unload-module", "module-sine-source"});
    EXPECT_EQ(service.resolveMicrophone(std::nullopt).id, "rilo_quiet");

    server().control({"unload-module", "module-null-source"});
    EXPECT_EQ(thrownMessage<MicrophoneCaptureError>([&] { service.resolveMicrophone(std::nullopt); }),
              "没有找到可用麦克风。");
}

TEST_F(PulseAudioDeviceServiceTest, SystemAudioIsTheMonitorOfTheDefaultOutput) {
    EXPECT_EQ(service.systemAudioMonitorSourceName(), "rilo_null.monitor");
    EXPECT_EQ(service.systemAudioOutputDeviceName(), "Rilo Test Output");

    server().control({"load-module", "module-null-sink", "sink_name=rilo_headphones"});
    server().control({"set-default-sink", "rilo_headphones"});
    EXPECT_EQ(service.systemAudioMonitorSourceName(), "rilo_headphones.monitor");
}

TEST_F(PulseAudioDeviceServiceTest, WithoutAServerThereIsNothingToRecord) {
    server().kill();

    EXPECT_TRUE(service.microphones().empty());
    EXPECT_EQ(thrownMessage<MicrophoneCaptureError>([&] { service.resolveMicrophone(std::nullopt); }),
              "没有找到可用麦克风。");
    const auto message =
        thrownMessage<SystemAudioCaptureError>([&] { service.systemAudioMonitorSourceName(); });
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->starts_with("系统音频当前不可用：")) << *message;
}

} // namespace
} // namespace rilo
