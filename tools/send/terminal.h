// A terminal session with a console.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/uniquefd.h"
#include "send/station.h"
#include "send/stationlink.h"

namespace kelp::tools {

// Sends the lines of standard input, with the settings' terminator in place of their ends, and
// shows on standard output everything that comes, asked for or not. No line waits for the answer to
// the one before. One thread.
class Terminal {
  public:
    Terminal(Target target, StationSettings settings);

    // Returns at the end of standard input (true), or with a reason when the connection cannot be
    // made or ends.
    bool Run(std::string& error);

  private:
    bool TakeTyped();
    bool TakeReceived();
    bool Write();
    void Show(std::string_view bytes);

    const Target mTarget;
    const StationSettings mSettings;
    const bool mForEyes;  // standard output is a terminal
    UniqueFd mFd;
    std::string mTyped;  // not a whole line yet
    std::string mUnsent;
    bool mHeard = false;   // something came
    bool mInLine = false;  // what was shown last did not end a line
};

}  // namespace kelp::tools
