#include "support/kelpprocess.h"

#include <fstream>
#include <iterator>

#include "support/wait.h"

namespace kelp::test {

namespace {

std::vector<std::string> Words(std::vector<std::string> arguments,
                               const std::vector<std::string>& environment) {
    arguments.insert(arguments.begin(), KELP_DAEMON);
    arguments.insert(arguments.begin(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), "env");
    return arguments;
}

}  // namespace

int Occurrences(const std::string& log, const std::string& text) {
    int count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
        ++count;
    }
    return count;
}

KelpProcess::KelpProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment)
    : Process(Words(arguments, environment), Path("log")) {}

const std::string& KelpProcess::Log() {
    std::ifstream file(Path("log"), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(mLog.size()));
    const std::string more(std::istreambuf_iterator<char>(file), {});
    // A record that is being written may be visible in part; take complete lines only.
    mLog.append(more, 0, more.rfind('\n') + 1);
    return mLog;
}

bool KelpProcess::WaitForLog(const std::string& text, int count) {
    return WaitUntil([&] { return Logged(text) >= count; });
}

}  // namespace kelp::test
