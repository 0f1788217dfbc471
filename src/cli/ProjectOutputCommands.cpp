#include "cli/ProjectOutputCommands.h"

#include "cli/CLIArgumentError.h"
#include "cli/TerminalProgressLine.h"
#include "export/ProjectExporter.h"
#include "project/engine/TimelineEditEngine.h"
#include "rendering/ProjectFrameRenderer.h"
#include "rendering/RenderContext.h"
#include "rendering/SceneRenderer.h"
#include "rendering/caption/CaptionRasterizer.h"
#include "shared/Files.h"

#include <algorithm>
#include <cctype>
#include <unistd.h>

namespace rilo::cli {

namespace {

// One GPU context and renderer for one command.
struct Renderer {
    RenderContext context;
    CaptionRasterizer captions;
    SceneRenderer scene;

    explicit Renderer(const ProjectStore& store)
        : scene(context, catalog(store), DeviceFrameCatalog::applicationResourceDirectory(), captions) {}

    // Without a readable catalog device frames are simply not drawn.
    static std::optional<DeviceFrameCatalog> catalog(const ProjectStore& store) {
        try {
            return store.deviceFrameCatalog()();
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
};

std::string loweredExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    if (!extension.empty()) {
        extension.erase(0, 1);
    }
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

CLIOutputResponse outputResponse(const ProjectSnapshot& snapshot, const std::filesystem::path& output) {
    CLIOutputResponse response;
    response.projectID = snapshot.manifest.id.string();
    response.outputPath = output.string();
    return response;
}

void runExport(const ProjectSnapshot& snapshot, const std::filesystem::path& output,
               const ExportConfiguration& configuration, const ProjectStore& store, const std::string& label,
               const std::stop_token& stop) {
    Renderer renderer(store);
    ProjectExporter exporter(renderer.context, renderer.scene);
    TerminalProgressLine line(label, STDERR_FILENO);
    exporter.exportProject(
        snapshot, output, configuration, std::nullopt, std::nullopt,
        [&](const ExportProgressUpdate& update) { line.update(update); }, stop);
    line.clear();
}

} // namespace

CLIOutputResponse ProjectOutputCommands::frame(const command::Frame& command) const {
    ProjectCommandService::prepareOutput(command.outputURL, command.replace);
    const LoadedProject loaded = service_.snapshot(command.projectID);
    Renderer renderer(store_);
    const std::string extension = loweredExtension(command.outputURL);
    if (extension != "jpg" && extension != "jpeg" && extension != "png") {
        throw CLIArgumentError::invalidValue("--out必须为jpg/jpeg/png");
    }
    ProjectFrameRenderer frames(renderer.context, renderer.scene);
    const std::string bytes =
        frames.render(loaded.snapshot, ProjectTime::fromMilliseconds(command.milliseconds), command.width,
                      extension, stop_);
    writeFileAtomically(command.outputURL, bytes);
    return outputResponse(loaded.snapshot, command.outputURL);
}

CLIOutputResponse ProjectOutputCommands::preview(const command::Preview& command) const {
    ProjectCommandService::prepareOutput(command.outputURL, command.replace);
    LoadedProject loaded = service_.snapshot(command.projectID);
    ProjectSnapshot& snapshot = loaded.snapshot;
    snapshot.timeline = TimelineEditEngine::retainingSequenceRange(
        snapshot.timeline, command.range.projectRange(), snapshot.manifest.duration);
    const ExportConfiguration configuration{ExportResolution::p720, ExportFrameRate::fps30,
                                            ExportQuality::compact, ExportCodec::h264};
    runExport(snapshot, command.outputURL, configuration, store_, "预览", stop_);
    return outputResponse(snapshot, command.outputURL);
}

CLIOutputResponse ProjectOutputCommands::exportProject(const command::Export& command) const {
    ProjectCommandService::prepareOutput(command.outputURL, command.replace);
    const LoadedProject loaded = service_.snapshot(command.projectID);
    runExport(loaded.snapshot, command.outputURL, command.configuration, store_, "导出", stop_);
    return outputResponse(loaded.snapshot, command.outputURL);
}

} // namespace rilo::cli
