// A running subject, started for one measurement.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "subject.h"
#include "support/process.h"
#include "support/pty.h"
#include "support/sockets.h"

namespace kelp::bench {

class Client;
struct Environment;

// Each has its own address; only one kelp can run at a time.
class RunningSubject {
  public:
    // `number` is unique among the running subjects.
    RunningSubject(const Subject& subject, Environment& environment, size_t number);

    // Waits until the subject listens, for at most 30 seconds; after that every exchange of the
    // client fails.
    std::unique_ptr<Client> Connect();
    // The relay and its child processes; none for "direct".
    std::vector<pid_t> Pids() const;
    // Length of the answer to kCommand.
    size_t AnswerBytes() const;

    static constexpr std::string_view kCommand = "AT+WIFI=0123456\r\n";

  private:
    // The program and its arguments.
    std::vector<std::string> Words() const;

    const Subject mSubject;
    Environment& mEnvironment;
    const std::string mPath;
    const int mPort = test::FreePort();
    test::Pty mLine;
    std::unique_ptr<test::Process> mRelay;
};

}  // namespace kelp::bench
