// A test station for the command line and for scripts: see ReadSendOptions.

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/text.h"
#include "platform/cjsonobject.h"
#include "send/sendoptions.h"
#include "send/station.h"
#include "send/terminal.h"

namespace {

using kelp::tools::Exchange;
using kelp::tools::Outcome;

constexpr int kExitNoInput = 66;
constexpr int kExitOutput = 74;

struct OutcomeInfo {
    const char* name;
    int exitStatus;
};

OutcomeInfo InfoOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::kOk:
            return {"OK", 0};
        case Outcome::kError:
            return {"ERROR", 1};
        case Outcome::kUnexpected:
            return {"UNEXPECTED", 1};
        case Outcome::kTimeOut:
            return {"TIMEOUT", 2};
        case Outcome::kNoConnection:
            return {"NOCONNECT", 3};
        case Outcome::kLost:
            return {"LOST", 3};
        default:
            return {"TEXT", 4};
    }
}

std::string Hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char c : bytes) {
        hex += kDigits[static_cast<unsigned char>(c) >> 4];
        hex += kDigits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

// True when a JSON object keeps the whole text; invalid UTF-8 becomes U+FFFD when written.
bool IsUtf8(const std::string& text) {
    neb::CJsonObject written;
    neb::CJsonObject read;
    std::string back;
    written.Replace("text", text);
    return read.Parse(written.ToString()) && read.Get("text", back) && back == text;
}

class Program {
  public:
    explicit Program(const kelp::tools::SendOptions& options)
        : mOptions(options), mStation(options.target, options.settings) {}

    int Run();

  private:
    bool SendLines();
    // False when the series must stop.
    bool Send(const std::string& command);
    void Print(std::string_view bytes) {
        mPrinted = fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() &&
                   fflush(stdout) == 0 && mPrinted;
    }
    void PrintObject(const std::string& command, const std::string& answer, const char* status,
                     int64_t milliseconds);
    void Explain(const std::string& command, const Exchange& exchange) const;

    const kelp::tools::SendOptions& mOptions;
    kelp::tools::Station mStation;
    const bool mToTerminal = isatty(STDOUT_FILENO) == 1;  // standard output is a terminal
    int mExitStatus = -1;                                 // the largest; -1: nothing sent yet
    bool mPrinted = true;
};

int Program::Run() {
    bool more = true;
    for (size_t i = 0; i < mOptions.commands.size() && more; ++i) {
        more = Send(mOptions.commands[i]);
    }
    if (more && !mOptions.file.empty() && !SendLines()) {
        fprintf(stderr, "kelp-send: %s: %s\n", mOptions.file.c_str(), strerror(errno));
        return kExitNoInput;
    }
    if (mExitStatus < 0) {
        fprintf(stderr, "kelp-send: %s: no command in it\n", mOptions.file.c_str());
        return kExitNoInput;
    }
    return mPrinted ? mExitStatus : kExitOutput;
}

bool Program::SendLines() {
    FILE* const file = mOptions.file == "-" ? stdin : fopen(mOptions.file.c_str(), "re");
    if (file == nullptr) {
        return false;
    }
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length;
    bool more = true;
    // Line by line, so that standard input may be interactive.
    while (more && (length = getline(&line, &capacity, file)) >= 0) {
        std::string command(line, static_cast<size_t>(length));
        command.erase(command.find_last_not_of("\r\n") + 1);
        if (!command.empty() && command[0] != '#') {
            more = Send(command);
        }
    }
    free(line);
    const bool ok = ferror(file) == 0;
    if (file != stdin) {
        fclose(file);
    }
    return ok;
}

bool Program::Send(const std::string& command) {
    std::string unasked;
    const Exchange exchange = mStation.Send(
        command,
        [&](std::string_view bytes) {
            if (mOptions.json) {
                unasked += bytes;
            } else {
                Print(bytes);
            }
        },
        [&](std::string_view bytes) {
            if (!mOptions.json) {
                Print(bytes);
            }
        });
    const OutcomeInfo info = InfoOf(exchange.outcome);
    if (!unasked.empty()) {
        PrintObject("", unasked, "UNASKED", 0);
    }
    if (mOptions.json) {
        PrintObject(command, exchange.answer, info.name, exchange.milliseconds);
    } else if (mToTerminal && !exchange.answer.empty() && exchange.answer.back() != '\n') {
        Print("\n");
    }
    Explain(command, exchange);
    mExitStatus = std::max(mExitStatus, info.exitStatus);
    return mPrinted && (info.exitStatus == 0 || !mOptions.stop);
}

void Program::PrintObject(const std::string& command, const std::string& answer, const char* status,
                          int64_t milliseconds) {
    neb::CJsonObject object;
    object.Replace("command", command);
    object.Replace("answer", answer);
    object.Replace("status", status);
    object.Replace("milliseconds", static_cast<int>(milliseconds));
    if (!IsUtf8(answer)) {
        object.Replace("hex", Hex(answer));
    }
    Print(object.ToString() + "\n");
}

void Program::Explain(const std::string& command, const Exchange& exchange) const {
    const std::string shown = kelp::tools::Printable(command);
    switch (exchange.outcome) {
        case Outcome::kTimeOut:
            fprintf(stderr, "kelp-send: %s: no complete answer in time%s\n", shown.c_str(),
                    exchange.error.c_str());
            break;
        case Outcome::kUnexpected:
            fprintf(stderr, "kelp-send: %s: the answer is not the expected one%s\n", shown.c_str(),
                    exchange.error.c_str());
            break;
        case Outcome::kError:
            if (!mOptions.settings.expectation.texts.empty()) {
                fprintf(stderr, "kelp-send: %s: the answer is an error\n", shown.c_str());
            }
            break;
        case Outcome::kLost:
            fprintf(stderr, "kelp-send: %s: %s\n", shown.c_str(), exchange.error.c_str());
            break;
        case Outcome::kNoConnection:
            fprintf(stderr, "kelp-send: %s: %s\n", mOptions.targetText.c_str(),
                    exchange.error.c_str());
            break;
        default:
            break;
    }
}

int RunTerminal(const kelp::tools::SendOptions& options) {
    std::string error;
    if (kelp::tools::Terminal(options.target, options.settings).Run(error)) {
        return 0;
    }
    fprintf(stderr, "kelp-send: %s: %s\n", options.targetText.c_str(), error.c_str());
    return InfoOf(Outcome::kLost).exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    const kelp::tools::SendOptions options = kelp::tools::ReadSendOptions(argc, argv);
    return options.terminal ? RunTerminal(options) : Program(options).Run();
}
