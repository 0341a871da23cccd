// The daemon's own control commands.
#pragma once

#include <deque>
#include <string>

#include "messager/messager.h"

namespace kelp {

struct CommonConfig;

// Serves the commands that begin with "ZAT+": consoles on and off, the TCP console's address and
// port, and the write-back of both.
//
// A switch is never done while its command is served: the answer leaves first, and the switch
// follows on the send thread of the console that carried the command. Switches are carried out one
// at a time, in the order in which they were asked for, by one thread at a time: a send thread that
// finds another one at it leaves its turn to that one and goes on. So two consoles that switch each
// other off never wait for each other.
class KELPMessager : public Messager {
  public:
    // The new module belongs to the caller.
    static Messager* Create(MessagerManager* manager, std::string name);

    using Messager::Messager;

    unsigned HandleMessager(Command* command, void* processor) override;

    // Performs at most one queued switch for its caller. Always 0. May block for as long as the
    // threads of a console need to end.
    unsigned HandleComplete() override;

    // All four work on the configuration in memory only; names and commands are in upper case.
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
    void SwitchOn(const std::string& console);
    void SwitchOff(const std::string& console);

    std::deque<std::string> mPendingCommands;  // guarded by the mutex that all instances share
};

}  // namespace kelp
