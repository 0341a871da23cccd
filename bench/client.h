// A client of a subject.
#pragma once

#include <string_view>

#include "platform/uniquefd.h"

namespace kelp::bench {

// One connection; the same code for all subjects.
class Client {
  public:
    Client(UniqueFd fd, bool isTty);

    // False when fewer than `answerBytes` arrive: five seconds without data, or the end of the
    // stream.
    bool Exchange(std::string_view data, size_t answerBytes) {
        return Send(data) && Receive(answerBytes);
    }
    bool Send(std::string_view data);
    bool Receive(size_t bytes);

  private:
    UniqueFd mFd;
    bool mIsTty;
};

}  // namespace kelp::bench
