// Any words on the command line: the option scanner terminates, and only "file" in one of its
// spellings selects the configuration file.

#include <fuzzer/FuzzedDataProvider.h>
#include <getopt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check.h"
#include "main/argparser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::vector<std::string> words = {"kelp", "--file=/dev/null"};
    while (input.remaining_bytes() > 0 && words.size() < 32) {
        // Cut at the first zero byte: arguments are C strings.
        words.emplace_back(input.ConsumeRandomLengthString(64).c_str());
    }
    const bool chooses = std::any_of(words.begin() + 2, words.end(), [](const std::string& word) {
        return word.compare(0, 2, "-f") == 0 || word.compare(0, 3, "--f") == 0;
    });
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    optind = 0;  // resets all state of the scanner
    KELP_FUZZ_CHECK(kelp::ArgParser(static_cast<int>(words.size()), argv.data()) == -1);
    std::string path;
    const bool exists = kelp::GetJsonPath(path);
    KELP_FUZZ_CHECK(chooses ? exists || path.empty() : exists && path == "/dev/null");
    return 0;
}
