#include "cli/CLICommand.h"

namespace rilo::cli {

namespace {
struct MutationWord {
    std::string operator()(const mutation::Cut&) const { return "cut"; }
    std::string operator()(const mutation::Speed&) const { return "speed-set"; }
    std::string operator()(const mutation::ZoomAdd&) const { return "zoom-add"; }
    std::string operator()(const mutation::ZoomRemove&) const { return "zoom-rm"; }
    std::string operator()(const mutation::Settings&) const { return "set"; }
    std::string operator()(const mutation::RestoreHistory&) const { return "restore"; }
    std::string operator()(const mutation::ZoomRegenerate&) const { return "zoom-regen"; }
};
} // namespace

std::string commandWord(const CLIMutation& mutation) {
    return std::visit(MutationWord{}, mutation);
}

} // namespace rilo::cli
