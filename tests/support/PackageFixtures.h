#pragma once

// Project packages made by hand for tests: a manifest, an optional media file
// and the package directories, written with the project's own encoder.

#include "project/document/ProjectManifest.h"
#include "project/document/ProjectPackage.h"

#include <filesystem>
#include <string>

namespace rilo::testing {

// A finished display recording with microphone and webcam, every optional
// member present.
ProjectManifest sampleManifest(const Uuid& id, IsoDate updatedAt,
                               ProjectState state = ProjectState::completed);

struct PackageOptions {
    std::string suffix = ".rilo";
    bool withMedia = true;
};

// Writes <library>/<UUID><suffix> with the manifest and, unless told not to,
// a placeholder media/recording.mov.
ProjectPackage writePackage(const std::filesystem::path& library, const ProjectManifest& manifest,
                            const PackageOptions& options = {});

} // namespace rilo::testing
