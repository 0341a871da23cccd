// Reads a peer script:
//
//     { "roles": [ { "role": "wcn", "socket": "/tmp/bench/sync_wcn",
//                    "answers": [ { "request": "AT+WIFI?", "answer": "+WIFI: 1\r\n\r\nOK\r\n" } ],
//                    "unsolicited": [ { "text": "\r\n+BEAT\r\n", "every": 1000 } ] } ] }
#pragma once

#include <string>
#include <vector>

#include "common/jsonlocator.h"
#include "peer/peerkeys.h"
#include "peer/peerscript.h"

namespace kelp::tools {

class ScriptReader {
  public:
    // `file` is used in messages only.
    ScriptReader(std::string file, std::string text);

    // False on any error, including an unknown key: ignoring it would give false test results.
    bool Read(Script& script);
    // "file:line:column: message" after a failed Read.
    const std::string& Error() const { return mError; }

  private:
    bool ReadRoles(size_t list, Script& script);
    bool ReadRole(size_t object, Script& script);
    bool ReadRoleMember(const neb::CJsonObject& json, const JsonMember& member, Role& role);
    bool ReadAnswers(size_t list, AnswerUse use, Role& role);
    bool ReadAnswer(size_t object, AnswerUse use, const Role& role, Answer& answer);
    bool CheckExclusion(const std::vector<JsonMember>& members, const JsonMember& member,
                        const char* excluded);
    bool ReadValue(const neb::CJsonObject& json, const JsonMember& member, const AnswerKey& key,
                   KeyValue& value);
    bool ReadNumber(const neb::CJsonObject& json, const JsonMember& member, const AnswerKey& key,
                    int& number);
    // The object's members, each once, and a handle to read them.
    bool OpenObject(size_t object, neb::CJsonObject& json, std::vector<JsonMember>& members);
    bool Expect(size_t value, char first, const char* what);
    bool Fail(size_t offset, const std::string& message);
    bool FailAt(neb::CJsonPosition position, const std::string& message);

    const std::string mFile;
    const std::string mText;
    const JsonLocator mLocator;
    std::string mError;
};

// Reads the script at `path`. False with a message that names the file.
bool ReadScript(const std::string& path, Script& script, std::string& error);

}  // namespace kelp::tools
