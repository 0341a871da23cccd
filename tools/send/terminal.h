// A terminal session with a console.
#pragma once

#include <string>
#include <string_view>

#include "platform/uniquefd.h"
#include "send/station.h"
#include "send/stationlink.h"

namespace kelp::tools {

// Sends the lines of standard input, with the settings' terminator in place of the line ends, and
// writes everything received to standard output, unsolicited or not. Does not wait for an answer
// before the next line. One thread.
class Terminal {
  public:
    Terminal(Target target, StationSettings settings);

    // Returns true at the end of standard input, or false with a reason when the connection fails
    // or ends.
    bool Run(std::string& error);

  private:
    bool TakeTyped();
    bool TakeReceived();
    bool Write();
    void Show(std::string_view bytes);

    const Target mTarget;
    const StationSettings mSettings;
    const bool mToTerminal;  // standard output is a terminal
    UniqueFd mFd;
    std::string mTyped;  // not a complete line yet
    std::string mUnsent;
    bool mHeard = false;   // something was received
    bool mInLine = false;  // the last output did not end a line
};

}  // namespace kelp::tools
