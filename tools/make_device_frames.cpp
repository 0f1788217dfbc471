// Draws the device frame pictures of the catalog at build time.
//
//     make_device_frames <catalog.json> <output directory>
//
// For every colour variant it writes an RGBA PNG of the device's outer pixel
// size: a body with rounded corners in the variant's colour, a lighter rim
// along the outside, a fully transparent screen hole at the catalog's screen
// rectangle and corner radius, and a transparent surround. A deep forehead
// gets a camera (and, on a phone, a speaker slot); a deep chin gets a home
// button. The catalog is copied next to the pictures, and pictures the
// catalog no longer names are removed, so the output directory holds exactly
// one catalog's resources.

#include "media/PngCodec.h"
#include "project/document/DeviceFrameCatalog.h"
#include "shared/Files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using rilo::DeviceFrameDescriptor;
using rilo::DeviceFrameVariant;

struct Colour {
    double r = 0;
    double g = 0;
    double b = 0;
};

// The colour word is the last dash-separated part of a variant id.
struct NamedColour {
    std::string_view word;
    Colour colour;
};

constexpr std::array<NamedColour, 12> bodyColours{{
    {"black", {31, 31, 33}},
    {"white", {242, 241, 236}},
    {"silver", {218, 219, 216}},
    {"gray", {92, 94, 98}},
    {"graphite", {74, 75, 78}},
    {"titanium", {141, 138, 133}},
    {"gold", {229, 207, 174}},
    {"blue", {62, 90, 120}},
    {"green", {79, 102, 83}},
    {"purple", {107, 94, 128}},
    {"pink", {235, 199, 203}},
    {"red", {163, 32, 47}},
}};

Colour colourOf(const DeviceFrameVariant& variant) {
    const auto dash = variant.id.rfind('-');
    const std::string_view word = dash == std::string::npos ? std::string_view(variant.id)
                                                            : std::string_view(variant.id).substr(dash + 1);
    for (const auto& named : bodyColours) {
        if (named.word == word) {
            return named.colour;
        }
    }
    throw std::runtime_error("no body colour for the variant " + variant.id);
}

Colour mix(Colour a, Colour b, double amount) {
    return {a.r + (b.r - a.r) * amount, a.g + (b.g - a.g) * amount, a.b + (b.b - a.b) * amount};
}

Colour lighter(Colour c, double amount) {
    return mix(c, {255, 255, 255}, amount);
}
Colour darker(Colour c, double amount) {
    return mix(c, {0, 0, 0}, amount);
}

double luminance(Colour c) {
    return (0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b) / 255;
}

// Details drawn on the body must show on dark and light bodies alike.
Colour detailColour(Colour body) {
    return luminance(body) < 0.3 ? lighter(body, 0.16) : darker(body, 0.28);
}

double clamp01(double value) {
    return std::clamp(value, 0.0, 1.0);
}

// Signed distance from a point to a rounded rectangle, negative inside.
struct RoundedRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    double radius = 0;

    double distance(double px, double py) const {
        const double halfWidth = width / 2;
        const double halfHeight = height / 2;
        const double qx = std::abs(px - (x + halfWidth)) - (halfWidth - radius);
        const double qy = std::abs(py - (y + halfHeight)) - (halfHeight - radius);
        const double outside = std::hypot(std::max(qx, 0.0), std::max(qy, 0.0));
        return outside + std::min(std::max(qx, qy), 0.0) - radius;
    }
};

// Area of a pixel covered by a shape, from the distance at its centre.
double coverage(double distance) {
    return clamp01(0.5 - distance);
}

struct Circle {
    double cx = 0;
    double cy = 0;
    double radius = 0;

    double distance(double px, double py) const { return std::hypot(px - cx, py - cy) - radius; }
};

// Where everything lies in one device's picture, in picture pixels.
struct FrameLayout {
    int width = 0;
    int height = 0;
    RoundedRect body;
    RoundedRect screen;
    double rimWidth = 0;
    std::optional<RoundedRect> speaker;
    std::optional<Circle> camera;
    std::optional<Circle> homeButton;

    explicit FrameLayout(const DeviceFrameDescriptor& device)
        : width(static_cast<int>(device.outerPixelSize.width))
        , height(static_cast<int>(device.outerPixelSize.height)) {
        const double w = width;
        const double h = height;
        const auto& rect = device.screenRect;
        screen = {rect.x * w, rect.y * h, rect.width * w, rect.height * h, 0};
        const double screenShort = std::min(screen.width, screen.height);
        screen.radius = std::min(device.screenCornerRadius * screenShort, screenShort / 2);

        // Concentric with the screen's corners, but never boxier than a tenth
        // of the body's width.
        const double sideBezel = std::min(screen.x, w - (screen.x + screen.width));
        const double bodyRadius = std::max(screen.radius + sideBezel, 0.1 * std::min(w, h));
        body = {0, 0, w, h, std::min(bodyRadius, std::min(w, h) / 2)};
        rimWidth = std::max(2.0, 0.012 * std::min(w, h));

        const double centreX = screen.x + screen.width / 2;
        const double forehead = screen.y;
        const double chin = h - (screen.y + screen.height);
        const bool isPhone = screen.width / screen.height < 0.65;
        if (forehead >= 0.12 * screenShort) {
            const double cameraRadius = std::max(2.5, 0.07 * forehead);
            if (isPhone) {
                const double slotWidth = 0.16 * screen.width;
                const double slotHeight = std::max(4.0, 0.08 * forehead);
                speaker = RoundedRect{centreX - slotWidth / 2, forehead / 2 - slotHeight / 2, slotWidth,
                                      slotHeight, slotHeight / 2};
                camera = Circle{centreX - slotWidth / 2 - 4 * cameraRadius, forehead / 2, cameraRadius};
            } else {
                camera = Circle{centreX, forehead / 2, cameraRadius};
            }
        }
        if (chin >= 0.15 * screenShort) {
            homeButton = Circle{centreX, h - chin / 2, 0.32 * chin};
        }
    }
};

rilo::RgbaImage draw(const FrameLayout& layout, Colour body) {
    rilo::RgbaImage image{layout.width, layout.height, {}};
    image.pixels.assign(static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.height) * 4,
                        0);
    const Colour detail = detailColour(body);
    const double screenLineWidth = 2.0;
    const double outlineWidth = 1.2;

    for (int row = 0; row < layout.height; ++row) {
        const double py = row + 0.5;
        // A faint light from above.
        const double light = 0.04 * (0.5 - py / layout.height);
        for (int column = 0; column < layout.width; ++column) {
            const double px = column + 0.5;
            const double bodyDistance = layout.body.distance(px, py);
            const double screenDistance = layout.screen.distance(px, py);
            const double alpha = coverage(bodyDistance) * (1 - coverage(screenDistance));
            if (alpha <= 0) {
                continue;
            }

            Colour colour = light >= 0 ? lighter(body, light) : darker(body, -light);
            const double inside = -bodyDistance;
            // A lighter rim along the outside, edged by a fine darker outline
            // so that light bodies stand out on light backgrounds.
            colour = lighter(colour, 0.35 * clamp01(1 - (inside - outlineWidth) / layout.rimWidth) *
                                         clamp01(inside / outlineWidth));
            colour = darker(colour, 0.15 * clamp01(1 - inside / outlineWidth));
            // A dark line where the glass meets the screen.
            colour = darker(colour, 0.45 * clamp01(1 - screenDistance / screenLineWidth));

            if (layout.speaker) {
                colour = mix(colour, detail, coverage(layout.speaker->distance(px, py)));
            }
            if (layout.camera) {
                colour = mix(colour, detail, coverage(layout.camera->distance(px, py)));
            }
            if (layout.homeButton) {
                const double distance = layout.homeButton->distance(px, py);
                // A ring around a slightly sunken face.
                colour = mix(colour, darker(colour, 0.06), coverage(distance));
                colour = mix(colour, detail, coverage(std::abs(distance) - 0.9));
            }

            std::uint8_t* pixel = image.pixels.data() +
                                  (static_cast<std::size_t>(row) * static_cast<std::size_t>(layout.width) +
                                   static_cast<std::size_t>(column)) *
                                      4;
            pixel[0] = static_cast<std::uint8_t>(std::lround(std::clamp(colour.r, 0.0, 255.0)));
            pixel[1] = static_cast<std::uint8_t>(std::lround(std::clamp(colour.g, 0.0, 255.0)));
            pixel[2] = static_cast<std::uint8_t>(std::lround(std::clamp(colour.b, 0.0, 255.0)));
            pixel[3] = static_cast<std::uint8_t>(std::lround(alpha * 255));
        }
    }
    return image;
}

struct Job {
    const DeviceFrameDescriptor* device;
    const DeviceFrameVariant* variant;
};

void writePicture(const Job& job, const std::filesystem::path& outputDirectory) {
    const auto image = draw(FrameLayout(*job.device), colourOf(*job.variant));
    rilo::writeFileAtomically(outputDirectory / job.variant->file,
                              rilo::encodePng(image.width, image.height, image.pixels));
}

void removeStalePictures(const std::filesystem::path& outputDirectory, const std::set<std::string>& keep) {
    for (const auto& entry : std::filesystem::directory_iterator(outputDirectory)) {
        const auto name = entry.path().filename().string();
        if (entry.is_regular_file() && entry.path().extension() == ".png" && !keep.contains(name)) {
            std::filesystem::remove(entry.path());
        }
    }
}

int run(const std::filesystem::path& catalogPath, const std::filesystem::path& outputDirectory) {
    const std::string bytes = rilo::readFileBytes(catalogPath);
    const auto catalog = rilo::DeviceFrameCatalog::decode(bytes);
    catalog.validate();

    std::vector<Job> jobs;
    std::set<std::string> files;
    for (const auto& device : catalog.devices) {
        for (const auto& variant : device.variants) {
            const std::filesystem::path file(variant.file);
            if (file != file.filename() || file.extension() != ".png") {
                throw std::runtime_error("a picture must be a plain .png file name: " + variant.file);
            }
            if (!files.insert(variant.file).second) {
                throw std::runtime_error("two variants share the picture " + variant.file);
            }
            static_cast<void>(colourOf(variant)); // an unknown colour word fails before any drawing
            jobs.push_back({&device, &variant});
        }
    }

    std::filesystem::create_directories(outputDirectory);
    removeStalePictures(outputDirectory, files);

    // Pictures are independent: draw them on every core, each worker taking
    // every n-th job.
    const unsigned workerCount = std::max(1u, std::min(std::thread::hardware_concurrency(), 8u));
    std::vector<std::exception_ptr> failures(workerCount);
    {
        std::vector<std::jthread> workers;
        for (unsigned worker = 0; worker < workerCount; ++worker) {
            workers.emplace_back([&, worker] {
                try {
                    for (std::size_t index = worker; index < jobs.size(); index += workerCount) {
                        writePicture(jobs[index], outputDirectory);
                    }
                } catch (...) {
                    failures[worker] = std::current_exception();
                }
            });
        }
    }
    for (const auto& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    rilo::writeFileAtomically(outputDirectory / "catalog.json", bytes);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: make_device_frames <catalog.json> <output directory>\n";
        return 2;
    }
    try {
        return run(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "make_device_frames: " << error.what() << '\n';
        return 1;
    }
}
