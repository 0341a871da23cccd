#include "messager/kelpmessager.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "platform/errortext.h"
#include "platform/log.h"
#include "platform/uppercase.h"
#include "processor/command.h"
#include "processor/processor.h"

namespace kelp {

namespace {

struct CommucationCmd {
    const char* command;
    const char* console;
    bool active;
};

// No row for the local console: it cannot be switched.
constexpr CommucationCmd CommucationCmdTable[] = {
    {"ZAT+TCP=1", "tcp", true},  {"ZAT+TCP=0", "tcp", false},  {"ZAT+USB=1", "usb", true},
    {"ZAT+USB=0", "usb", false}, {"ZAT+UART=1", "uart", true}, {"ZAT+UART=0", "uart", false},
};

constexpr char kUpdate[] = "ZAT+UPDATE";
constexpr char kPort[] = "ZAT+PORT";
constexpr char kIp[] = "ZAT+IP";
// More cannot be an address, but would be parsed and written at each update.
constexpr size_t kMaxAddress = 255;

const CommucationCmd* FindRow(const std::string& command) {
    const auto* row = std::find_if(std::begin(CommucationCmdTable), std::end(CommucationCmdTable),
                                   [&](const CommucationCmd& r) { return command == r.command; });
    return row != std::end(CommucationCmdTable) ? row : nullptr;
}

bool StartsWith(const std::string& text, const char* prefix) {
    return text.compare(0, strlen(prefix), prefix) == 0;
}

// The request up to its first zero byte, in upper case.
std::string UpperText(const std::vector<char>& request) {
    return UpperCase(std::string(request.begin(), std::find(request.begin(), request.end(), '\0')));
}

}  // namespace

Messager* KELPMessager::Create(MessagerManager* manager, std::string name) {
    return new KELPMessager(manager, name);
}

unsigned KELPMessager::HandleMessager(Command* command, void* processor) {
    std::vector<char>& request = *command->GetRequest();
    const std::string text = Serve(UpperText(request));
    Formatter formatter;
    formatter.SetResult(kSuccess);
    formatter.SetRequest(request.data(), static_cast<int>(request.size()));
    formatter.SetResponse(text.data(), static_cast<int>(text.size()));
    formatter.GetResponse(command);
    command->mMessager = this;
    return SendMessager(command, processor);
}

// Executes the command or queues it; returns the answer text.
std::string KELPMessager::Serve(const std::string& command) {
    if (const CommucationCmd* const row = FindRow(command)) {
        CommonConfig* const config = GetConfigManager()->GetConfigByName(row->console);
        MutexLock lock(sPendingMutex);
        mPendingCommands.push_back(command);
        if (config != nullptr) {
            config->ordered = row->active;
        }
    } else if (command == kUpdate) {
        GetConfigManager()->RefreshConfig();
    } else if (StartsWith(command, kPort)) {
        UpdateTCPPortConfig(command);
    } else if (StartsWith(command, kIp)) {
        UpdateTCPIPConfig(command);
    } else {
        ErrorBuffer text;
        GetStringByErrCode(kErrorUnsupportCommand, kErrorBase, text);
        KLOG_AS("HandleMessager", kLogError) << mModuleName << ":unsupport command";
        return text;
    }
    return std::string();
}

// The record "tcp" and the text after the '=' of `command`; null when either is missing.
CommonConfig* KELPMessager::FindTcpConfig(const char* function, const std::string& command,
                                          std::string& value) {
    const size_t equals = command.find('=');
    if (equals == std::string::npos) {
        return nullptr;
    }
    value = command.substr(equals + 1);
    CommonConfig* const config = GetConfigManager()->GetConfigByName("tcp");
    if (config == nullptr) {
        KLOG_AS(function, kLogError) << mModuleName << "Get Tcp config failed!";
    }
    return config;
}

void KELPMessager::UpdateTCPIPConfig(std::string command) {
    std::string address;
    CommonConfig* const config = FindTcpConfig(__func__, command, address);
    if (config == nullptr) {
        return;
    }
    if (address.size() > kMaxAddress) {
        KLOG(kLogError) << mModuleName << ":address of " << address.size() << " bytes ignored";
        return;
    }
    if (address == "0") {
        address.clear();
    }
    config->route = address;
    KLOG(kLogInfo) << mModuleName << ":IP Address: " << address;
}

void KELPMessager::UpdateTCPPortConfig(std::string command) {
    std::string value;
    CommonConfig* const config = FindTcpConfig(__func__, command, value);
    if (config == nullptr) {
        return;
    }
    int port = 0;
    std::istringstream(value) >> port;
    config->port = port;
    KLOG(kLogInfo) << mModuleName << ":IP Port: " << port;
}

bool KELPMessager::isCommucationActive(std::string console) {
    const CommonConfig* const config = GetConfigManager()->GetConfigByName(console);
    return config != nullptr && config->active;
}

bool KELPMessager::UpdateCommucationActive(std::string console, bool active) {
    CommonConfig* const config = GetConfigManager()->GetConfigByName(console);
    if (config == nullptr) {
        return false;
    }
    config->active = active;
    return true;
}

unsigned KELPMessager::HandleComplete() {
    std::string command;
    {
        MutexLock lock(sPendingMutex);
        if (mDue == mPendingCommands.size() || mDue++ > 0) {
            return kSuccess;
        }
        command = mPendingCommands.front();
    }
    for (;;) {
        ProcessSwitch(command);
        MutexLock lock(sPendingMutex);
        mPendingCommands.pop_front();
        if (--mDue == 0) {
            return kSuccess;
        }
        command = mPendingCommands.front();
    }
}

void KELPMessager::ProcessSwitch(const std::string& command) {
    KLOG_AS("HandleComplete", kLogDebug) << mModuleName << ": process kelp command->" << command;
    const CommucationCmd& row = *FindRow(command);
    const std::string subject = mModuleName + ": " + row.console;
    if (isCommucationActive(row.console) == row.active) {
        KLOG_AS("HandleComplete", kLogDebug) << subject << " communication already done";
        return;
    }
    UpdateCommucationActive(row.console, row.active);
    Processor* const processor = mManager->GetProcessorByName(row.console);
    if (processor == nullptr) {
        KLOG_AS("HandleComplete", kLogError) << subject << " not available";
        return;
    }
    const bool connected = processor->IsConnect();
    if (!row.active) {
        processor->Stop();  // also without a descriptor: it may be about to be reopened
    } else if (!connected) {
        processor->Start();
    }
    KLOG_AS("HandleComplete", kLogDebug)
        << subject << (connected == row.active ? " already" : "")
        << (row.active ? " active" : " deactive") << " communication";
}

}  // namespace kelp
