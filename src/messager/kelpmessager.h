// The daemon's own control commands.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "messager/messager.h"
#include "platform/sync.h"

namespace kelp {

struct CommonConfig;

// Serves the commands that begin with "ZAT+": switch consoles on and off, set the TCP console's
// address and port, and write these settings back.
//
// A switch is never done while its command is served: a send thread does it after it has written or
// dropped an answer of this module. Each such answer performs the oldest queued switch, so switches
// run in the order of the requests, one at a time. Of two consoles with control commands at the
// same time, the answer on one may therefore perform the switch of the other, whose own answer may
// still be unsent; a console that is switched off drops its unsent answers.
//
// A send thread that finds another thread switching leaves its switch to that thread and goes on,
// so two consoles that switch each other off never wait for each other. There is one such module.
class KELPMessager : public Messager {
  public:
    // The caller owns the new module.
    static Messager* Create(MessagerManager* manager, std::string name);

    using Messager::Messager;

    unsigned HandleMessager(Command* command, void* processor) override;

    // Performs at most one queued switch for its caller. Always returns 0. May block until the
    // threads of a console have ended.
    unsigned HandleComplete() override;

    // These read and change the configuration in memory only. `command` is in upper case; `console`
    // is the exact name of a console record.
    virtual void UpdateTCPIPConfig(std::string command);
    virtual void UpdateTCPPortConfig(std::string command);
    // False when there is no such console record.
    virtual bool isCommucationActive(std::string console);
    virtual bool UpdateCommucationActive(std::string console, bool active);

  private:
    std::string Serve(const std::string& command);
    CommonConfig* FindTcpConfig(const char* function, const std::string& command,
                                std::string& value);
    void ProcessSwitch(const std::string& command);

    // Never held while a console is started or stopped; only a record field's lock is taken inside.
    inline static Mutex sPendingMutex;
    // The switches not done yet, and how many of them completions have asked for, including the one
    // under way: the thread that raises the number from 0 does them all.
    std::deque<std::string> mPendingCommands KELP_GUARDED_BY(sPendingMutex);
    size_t mDue KELP_GUARDED_BY(sPendingMutex) = 0;
};

}  // namespace kelp
