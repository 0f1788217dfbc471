// The command line after "cli" (CLIArgumentParser::parse), one word between
// NUL bytes, as the words of argv are. The grammar refuses with
// CLIArgumentError; resolving a bare output name may fail with the FileError
// of the application directories.

#include "FuzzSupport.h"
#include "cli/CLIArgumentParser.h"

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace rilo;
    std::vector<std::string> words;
    if (size > 0) {
        std::string_view rest = fuzz::inputText(data, size);
        while (true) {
            const auto end = rest.find('\0');
            words.emplace_back(rest.substr(0, end));
            if (end == std::string_view::npos) {
                break;
            }
            rest.remove_prefix(end + 1);
        }
    }
    try {
        cli::CLIArgumentParser::parse(words);
    } catch (const cli::CLIArgumentError&) {
    } catch (const FileError&) {
    }
    return 0;
}
