// The line settings of a serial console.
#pragma once

#include <termios.h>

#include "config/receiveconfig.h"

namespace kelp {

class SFIOChannel;

// Sets an opened line to the daemon's settings: 115200 baud both ways, 8 data bits, no parity,
// non-canonical, no echo, no CR/LF translation, no XON/XOFF. A failure is only logged. Used by one
// console at a time.
class ConsoleAttribute {
  public:
    using ConfigHook = void (*)(struct termios* settings, unsigned* inSpeed, unsigned* outSpeed);

    // `channel` is not owned and must outlive this object.
    ConsoleAttribute(SFIOChannel* channel, RecModeE mode, unsigned long value);

    // Applies the daemon's settings, or those that mConfigHook makes of the current ones.
    void OnConfig();
    // Applies the given flag words (input, output, local) and speeds over raw settings.
    void OnConfig(const struct termios* settings, unsigned int inSpeed, unsigned int outSpeed);
    // 0; -1 when the channel has no descriptor; -2 when the settings cannot be read.
    int LoadConfig(struct termios* out);

    ConfigHook mConfigHook = nullptr;  // an extension point; nothing sets it

  private:
    struct Receive {
        unsigned value;
        RecModeE mode;
    };

    SFIOChannel* const mChannel;
    const unsigned mInSpeed = B115200;  // for reference: OnConfig uses its own constant
    const unsigned mOutSpeed = B115200;
    const Receive mReceive[2];
};

}  // namespace kelp
