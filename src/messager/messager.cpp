#include "messager/messager.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "messager/messagermanager.h"
#include "messager/peeranswer.h"
#include "platform/errortext.h"
#include "platform/log.h"
#include "platform/thread.h"
#include "platform/uppercase.h"
#include "processor/command.h"

namespace kelp {

namespace {

// True when the request, in upper case, begins with `entry`.
bool HasPrefix(std::string_view request, std::string_view entry) {
    return request.size() >= entry.size() &&
           std::equal(entry.begin(), entry.end(), request.begin(),
                      [](char e, char r) { return e == UpperCase(r); });
}

}  // namespace

Messager::Messager(MessagerManager* manager, const std::string& name)
    : mTimeout(manager->GetModuleByName(name)->timeout),
      mManager(manager),
      mModuleName(name),
      mSocketPath(manager->GetModuleByName(name)->path),
      mModuleInfo(manager->GetModuleByName(name)),
      mClient(std::make_shared<LocalSocketClient>(mSocketPath)) {
    if (mModuleInfo->keepAlive) {
        mFd = Connect();
    }
}

Messager::PeerTurn::PeerTurn(Messager* messager)
    : TurnHolder(messager->mPeer, !Thread::StopRequested()) {}

ConfigManager* Messager::GetConfigManager() const {
    return mManager->GetConfigManager();
}

bool Messager::isSupportCmd(const char* data, int length) const {
    if (data == nullptr) {
        KLOG(kLogError) << mModuleName << ": pData is null";
        return false;
    }
    const std::string_view request(data, static_cast<size_t>(std::max(length, 0)));
    // Test commands are compared as terminated strings: both end at their first zero byte.
    const std::string_view text = request.substr(0, request.find('\0'));
    for (const std::string& entry : mModuleInfo->testCmds) {
        const std::string_view wanted(entry.c_str());
        if (text.size() == wanted.size() && HasPrefix(text, wanted)) {
            KLOG(kLogDebug) << mModuleName << ": support test command (" << entry << ")";
            return true;
        }
    }
    for (const std::string& entry : mModuleInfo->whiteList) {
        if (HasPrefix(request, entry)) {
            KLOG(kLogDebug) << mModuleName << ": support white command (" << entry << ")";
            return true;
        }
    }
    return false;
}

int32_t Messager::Send(Command* command) {
    if (mFd == -1) {
        KLOG(kLogDebug) << mModuleName << " socket pause. connect now";
        if (Connect() == -1) {
            return -1;
        }
    } else if (DropStaleBytes(*mClient) != LocalResult::kDone) {
        mClient->sclose();
    }
    // A closed peer is detected by the write at the latest.
    LocalResult result = mClient->ssend(*command->GetRequest());
    if (result == LocalResult::kLost || result == LocalResult::kClosed) {
        Connect();
        result = mClient->ssend(*command->GetRequest());
    }
    if (result != LocalResult::kDone) {
        mClient->sclose();
    }
    return mClient->Descriptor();
}

int Messager::Receive(Command* command, int, int seconds) {
    std::vector<char>& response = *command->GetResponse();
    bool whole = true;
    const LocalResult received =
        ReceiveAnswer(*mClient, response, seconds, {mModuleInfo->quietMs}, whole);
    int result = kSuccess;
    if (received != LocalResult::kDone) {
        result = ToErrorCode(received);
        ReportReceiveError(result, &response);
    }
    if (mFd == -1 || result != kSuccess || !whole) {
        int fd = mFd;
        Disconnect(fd);
    }
    return result;
}

void Messager::ReportReceiveError(int result, std::vector<char>* answer) const {
    ErrorBuffer text;
    GetStringByErrCode(result, kErrorBase, text);
    KLOG_AS("Receive", kLogDebug) << mModuleName << "-->Receive error (" << text << ")";
    if (answer != nullptr) {
        answer->insert(answer->end(), text, text + strlen(text));
    }
}

unsigned Messager::SendMessager(Command* command, void* processor) {
    return mManager->HandleResponse(command, processor);
}

LocalResult Messager::DropStaleBytes(LocalSocketClient& client, size_t dropped) {
    const LocalResult result = client.Discard(dropped);
    if (dropped > 0) {
        KLOG(kLogError) << mModuleName << "-->dropped " << dropped
                        << " bytes of an earlier exchange";
    }
    return result;
}

unsigned Messager::Exchange(Command* command, void* processor, bool reopen) {
    {
        const PeerTurn turn(this);
        if (turn.Held()) {
            if (mFd == -1 && reopen) {
                mFd = Connect();
            }
            const int32_t sent = Send(command);
            Receive(command, sent, 0);
        }
    }
    return SendMessager(command, processor);
}

}  // namespace kelp
