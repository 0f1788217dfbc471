#include "ui/desktop/DesktopApplication.h"

#include "capture/RecordingMachineFacts.h"
#include "project/document/DeviceFrameCatalog.h"
#include "shared/AppDirectories.h"
#include "ui/desktop/LibraryWindow.h"
#include "ui/desktop/QtMainRunLoop.h"

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace rilo::ui {

namespace {

constexpr int noDisplayExitCode = 1;

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Qt ends the process when its platform plugin cannot start; this says why
// in the user's words instead, with the same exit code as a missing display.
void reportFatalStartupMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "无法启动图形界面：%s\n可以使用命令行模式：rilo cli\n",
                     message.toLocal8Bit().constData());
        std::fflush(stderr);
        std::_Exit(noDisplayExitCode);
    }
    std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

} // namespace

std::optional<std::string> missingDisplayMessage() {
    const std::string platform = environmentValue("QT_QPA_PLATFORM");
    if (!platform.empty() && !platform.starts_with("xcb") && !platform.starts_with("wayland")) {
        return std::nullopt;
    }
    const std::string display = environmentValue("DISPLAY");
    const std::string waylandDisplay = environmentValue("WAYLAND_DISPLAY");
    if (display.empty() && waylandDisplay.empty()) {
        return "没有可用的图形显示（DISPLAY 和 WAYLAND_DISPLAY 均未设置），无法打开 Rilo 窗口。\n"
               "可以使用命令行模式：rilo cli";
    }
    if (!waylandDisplay.empty() && !platform.starts_with("xcb")) {
        return std::nullopt;
    }
    xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
    const bool connected = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    if (!connected) {
        return "无法连接到显示 " + display + "，无法打开 Rilo 窗口。\n可以使用命令行模式：rilo cli";
    }
    return std::nullopt;
}

std::filesystem::path defaultCoverCacheDirectory() {
    const std::filesystem::path cacheHome = environmentValue("XDG_CACHE_HOME");
    if (cacheHome.is_absolute()) {
        return cacheHome / "Rilo/Covers";
    }
    return std::filesystem::path(environmentValue("HOME")) / ".cache/Rilo/Covers";
}

AppModelEnvironment desktopModelEnvironment(const std::string& applicationVersion) {
    AppModelEnvironment environment;
    environment.libraryDirectory = defaultProjectsDirectory();
    environment.deviceFrameCatalog = DeviceFrameCatalog::bundled;
    environment.deviceFrameResourceDirectory = DeviceFrameCatalog::applicationResourceDirectory();
    environment.coverCacheDirectory = defaultCoverCacheDirectory();
    environment.makePlayer = [](const ProjectSnapshot&) { return std::unique_ptr<ProjectPlayer>(); };
    environment.machineFacts = [] { return currentMachineFacts(std::nullopt); };
    environment.desktopDisplayName = "";
    environment.soundsDirectory = DeviceFrameCatalog::applicationResourceDirectory() / "sounds";
    environment.userDefaults = std::make_shared<UserDefaults>(defaultSettingsFile());
    environment.applicationVersion = applicationVersion;
    return environment;
}

int runDesktopApplication(const std::vector<std::string>& arguments, const std::string& applicationVersion) {
    if (const std::optional<std::string> message = missingDisplayMessage()) {
        std::fprintf(stderr, "%s\n", message->c_str());
        return noDisplayExitCode;
    }
    // QApplication keeps argc and argv for its lifetime.
    std::vector<std::string> storage = arguments;
    std::vector<char*> argv;
    for (std::string& argument : storage) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    int argc = static_cast<int>(storage.size());

    const QtMessageHandler previousHandler = qInstallMessageHandler(reportFatalStartupMessage);
    QApplication application(argc, argv.data());
    qInstallMessageHandler(previousHandler);
    QApplication::setApplicationName(QStringLiteral("Rilo"));
    QApplication::setApplicationVersion(QString::fromStdString(applicationVersion));

    QtMainRunLoop loop;
    AppModel model(loop, desktopModelEnvironment(applicationVersion), false, false);
    LibraryWindow window(model);
    model.bootstrap();
    window.show();
    return QApplication::exec();
}

} // namespace rilo::ui
