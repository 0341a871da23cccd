#include "config/configmanager.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <thread>
#include <tuple>

#include "platform/cjsonobject.h"
#include "platform/log.h"
#include "platform/systemproperty.h"
#include "support/logcapture.h"
#include "support/tempdir.h"

namespace kelp::test {
namespace {

class Config : public testing::Test {
  protected:
    bool Load(const std::string& text) {
        mLog.Take();
        return mManager.ParseJSONDoc(mDir.Write("k.json", text));
    }
    // The new records that begin with `prefix`, without the prefix, each followed by a bar.
    std::string Said(const std::string& prefix = "") {
        std::string result;
        for (const std::string& record : mLog.Take()) {
            if (record.compare(0, prefix.size(), prefix) == 0) {
                result += record.substr(prefix.size()) + "|";
            }
        }
        return result;
    }
    neb::CJsonObject Written() {
        neb::CJsonObject doc;
        EXPECT_TRUE(doc.Parse(mDir.Read("k.json")));
        return doc;
    }
    struct stat Status() const {
        struct stat status = {};
        EXPECT_EQ(stat(mPath.c_str(), &status), 0);
        return status;
    }

    TempDir mDir;
    const std::string mPath = mDir.Path("k.json");
    LogCapture mLog;
    ConfigManager mManager;
};

TEST_F(Config, UnreadableFilesLeaveTheDefaults) {
    const std::string fifo = mDir.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string big = mDir.Write("big", "{}");
    ASSERT_EQ(truncate(big.c_str(), (1 << 20) + 1), 0);
    const std::pair<std::string, int> unreadable[] = {
        {mDir.Path("missing"), ENOENT}, {mDir.Root(), EISDIR}, {fifo, EINVAL}, {big, EFBIG}};
    for (const auto& [path, reason] : unreadable) {
        const std::string said =
            "E ReadJSONDoc: Json file(" + path +
            ") open error!!!|I ReadJSONDoc: not read, errno = " + std::to_string(reason) + "|";
        EXPECT_FALSE(mManager.ParseJSONDoc(path));
        EXPECT_EQ(Said(), said);
        EXPECT_FALSE(mManager.RefreshConfig());
        EXPECT_EQ(Said(), said);
        EXPECT_FALSE(SystemProperty::SetFile(path.c_str()));
        EXPECT_EQ(Said("E SetFile: property file(" + path + ") not read, errno = "),
                  std::to_string(reason) + " (" + strerror(reason) + ")|");
    }
    EXPECT_FALSE(Load("{\"console\":{\"tcp\":{\"port\":1}},\n}"));
    EXPECT_EQ(Said(), "E ReadJSONDoc: Json file(" + mPath + ") syntax error!!!|" +
                          "I ReadJSONDoc: line 2, column 1: not valid JSON|");
    EXPECT_FALSE(mManager.RefreshConfig());
    EXPECT_EQ(mDir.Read("k.json").back(), '}');
    ASSERT_TRUE(Load(R"({"receive-mode":{"mode":"TAIL"}})"));
    EXPECT_EQ(Said("E "), "HexToString: length < 0|");
    EXPECT_EQ(mManager.GetReceiveConfig()->mode, kReceiveNone);
    EXPECT_EQ(mManager.GetConfigByName("TCP"), nullptr);
    EXPECT_FALSE(mManager.SupportConsoleMode("serial"));
    ASSERT_TRUE(Load(R"({"console":1})"));
    EXPECT_EQ(Said("I ParseConsole: "),
              "uart:1:0:/dev/ttyQVZ1:0:0|usb:1:1:/dev/ttyGS0:0:0|local:1:1:/dev/socket/kelp:0:0|"
              "tcp:1:0:192.168.1.100:3000:0|");
}

TEST_F(Config, InvalidConsoleSettingsAreIgnored) {
    ASSERT_TRUE(Load(R"({"console":{"serial":{"port":1},
        "tcp":{"active":true,"route":"10.0.0.1","port":-2147483648,"timeout":2147483648},
        "usb":{"support":false,"port":1.5,"route":null,"timeout":18446744073709551615},
        "uart":{"support":0,"active":1,"route":7,"port":1e300,"timeout":-2147483649},
        "local":{"active":false,"support":false,"route":"x","port":9,"timeout":8.0}}})"));
    EXPECT_EQ(Said("I "),
              "ParseActive: Json: true|ParseActive: Json: |ParseActive: Json: |"
              "ParseConsole: uart:1:0:/dev/ttyQVZ1:0:0|"
              "ParseConsole: usb:0:0:/dev/ttyGS0:0:0|"
              "ParseConsole: local:1:1:/dev/socket/kelp:0:8|"
              "ParseConsole: tcp:1:1:10.0.0.1:-2147483648:0|");
}

TEST_F(Config, ActiveFollowsItsProperty) {
    const std::string properties =
        mDir.Write("p", "# a=1\n vendor.a = 1 \nvendor.b=yes\r\nvendor.b=no\nempty=\n");
    SystemProperty::SetFile(properties.c_str());
    const std::tuple<std::string, bool, std::string> rows[] = {
        {"true", true, ""},
        {"{}", false, ""},
        {R"({"vendor.a":1})", true, "Property vendor.a real value is1|"},
        {R"({"vendor.b":"no"})", true, "Property vendor.b real value isno|"},
        {R"({"vendor.b":"No"})", false, "Property vendor.b real value isno|"},
        {R"({"a":"1"})", false, "Property a real value is0|"},
        {R"({"empty":"0","vendor.a":"1"})", true, "Property empty real value is0|"},
    };
    for (const auto& [value, active, property] : rows) {
        ASSERT_TRUE(Load(R"({"console":{"tcp":{"active":)" + value + "}}}"));
        EXPECT_EQ(Said("I ParseActive: "), "Json: " + value + "|" + property);
        EXPECT_EQ(mManager.GetConfigByName("tcp")->active, active) << value;
    }
    SystemProperty::SetFile(nullptr);
}

TEST_F(Config, ModuleSettingsAreReadInFileOrder) {
    ASSERT_TRUE(Load(R"({"module":{"test-commands":{"fm":["EARLY"]},
        "support-modules":["wcn",5,"fm"],
        "interaction":{"fm":{"path":"@fm","timeout":3,"quiet":250},"wcn":{"keep-alive":true}}}})"));
    EXPECT_EQ(Said("D ParseSupportModules: "),
              "0: load module(wcn)|2: load module(fm)|2: load module(fm)|");
    EXPECT_TRUE(mManager.GetModuleByName("fm")->testCmds.empty());
    ASSERT_TRUE(Load(R"({"module":{"interaction":1}})"));
    EXPECT_EQ(Said("I ParseInteraction: "),
              "<<<<<<< wcn|keep-alive(1),path(/dev/socket/sync_wcn),timeout(15)|>>>>>>> wcn|"
              "<<<<<<< modem|keep-alive(1),path(/dev/socket/async_tolm),timeout(0)|>>>>>>> modem|"
              "<<<<<<< fm|keep-alive(0),path(@fm),timeout(3)|quiet(250)|>>>>>>> fm|");
    // A list replaces the earlier one, unless it has no valid elements.
    for (const char* list : {R"(["b","B",7,"a","b"])", R"(["b","B",7,"a","b"])", "[]", R"("AT")"}) {
        ASSERT_TRUE(Load(std::string(R"({"module":{"whitelist":{"wcn":)") + list + "}}}"));
        EXPECT_EQ(Said("I ParseWhiteList: "),
                  "<<<<<<< wcn command white list|B|a|b|b|>>>>>>> wcn command white list|"
                  "<<<<<<< modem command white list|>>>>>>> modem command white list|"
                  "<<<<<<< fm command white list|>>>>>>> fm command white list|");
    }
    for (const char* list : {R"(["B","ABCD",null,"AC"])", "[]", "null"}) {
        ASSERT_TRUE(Load(std::string(R"({"module":{"test-commands":{"wcn":)") + list + "}}}"));
        EXPECT_EQ(Said("I ParseTestCmds: "),
                  "<<<<<<<wcn|<ABCD>|<AC>|<B>|>>>>>>>wcn|"
                  "<<<<<<<modem|>>>>>>>modem|<<<<<<<fm|>>>>>>>fm|");
    }
}

TEST_F(Config, RefreshChangesOnlyConsoleSettings) {
    // Of the two "extra" the last value counts, at the place of the first.
    mDir.Write("k.json",
               "\xEF\xBB\xBF{\"extra\":0,"
               R"("console":{
        "tcp":{"note":"mine","active":{"p":"1"},"port":1},"usb":[]},"extra":{"é":["\u0000",null]}})");
    ASSERT_EQ(chmod(mPath.c_str(), 0640), 0);
    // Root can also give the file to another group, which it keeps.
    ASSERT_EQ(chown(mPath.c_str(), geteuid(), geteuid() == 0 ? 65534 : getegid()), 0);
    const gid_t group = Status().st_gid;
    const std::string link = mDir.Path("link");
    ASSERT_EQ(symlink("k.json", link.c_str()), 0);
    ASSERT_TRUE(mManager.ParseJSONDoc(link));
    CommonConfig& tcp = *mManager.GetConfigByName("tcp");
    tcp.ordered = true;
    tcp.route = std::string("\xFFgarbage\r\n\"");
    tcp.port = -1;
    const ino_t before = Status().st_ino;
    ASSERT_TRUE(mManager.RefreshConfig());
    const std::string written = Written().ToString();
    EXPECT_EQ(written.find(
                  R"({"extra":{"é":["\u0000",null]},"console":{"tcp":{"note":"mine","active":true,)"
                  R"("port":-1,"support":true,"route":"�garbage\r\n\"","timeout":0},)"
                  R"("usb":{"support":true,"active":false,"route":"/dev/ttyGS0","port":0,)"
                  R"("timeout":0},"uart":{"support":)"),
              0u)
        << written;
    const struct stat replaced = Status();
    EXPECT_NE(replaced.st_ino, before);  // replaced by a new file
    EXPECT_EQ(replaced.st_mode & 07777, 0640u);
    EXPECT_EQ(replaced.st_gid, group);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(mDir.Count(), 2u);
    // An unchanged file is not written again; neither is one that would be too large to read.
    ASSERT_TRUE(mManager.RefreshConfig());
    EXPECT_EQ(Status().st_ino, replaced.st_ino);
    Said();
    tcp.route = std::string(200000, '\1');  // 1.2 MB in the file
    EXPECT_FALSE(mManager.RefreshConfig());
    EXPECT_EQ(Said(), "E RefreshConfig: Json file(" + link +
                          ") open error!!!|I RefreshConfig: not written, errno = 27|");
    EXPECT_EQ(Written().ToString(), written);
}

// A read-only directory, a read-only file, and a full disk (by a file size limit).
TEST_F(Config, RefreshWithoutPermissionOrSpace) {
    // Longer than the new text: without truncation, old bytes would remain after it.
    ASSERT_TRUE(Load("{" + std::string(5000, ' ') + "}"));
    const ino_t before = Status().st_ino;
    const uid_t self = geteuid();
    const uid_t other = self == 0 ? 65534 : self;  // root ignores file modes
    ASSERT_EQ(chown(mPath.c_str(), other, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(mDir.Root().c_str(), 0555), 0);
    ASSERT_EQ(seteuid(other), 0);
    EXPECT_TRUE(mManager.RefreshConfig());
    EXPECT_EQ(Status().st_ino, before);
    const std::string written = mDir.Read("k.json");
    EXPECT_FALSE(Written()["console"]["tcp"].IsEmpty());

    mManager.GetConfigByName("tcp")->port = 1;
    ASSERT_EQ(chmod(mPath.c_str(), 0444), 0);
    EXPECT_FALSE(mManager.RefreshConfig());
    EXPECT_EQ(Said("E RefreshConfig: "), "Json file(" + mPath + ") open error!!!|");
    ASSERT_EQ(chmod(mPath.c_str(), 0644), 0);
    ASSERT_EQ(seteuid(self), 0);
    ASSERT_EQ(chmod(mDir.Root().c_str(), 0755), 0);

    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const struct rlimit small = {100, limit.rlim_max};
    SetLogFilter("*:S");  // the limit also applies to the captured log
    setrlimit(RLIMIT_FSIZE, &small);
    const bool refreshed = mManager.RefreshConfig();
    setrlimit(RLIMIT_FSIZE, &limit);
    SetLogFilter(nullptr);
    EXPECT_FALSE(refreshed);
    EXPECT_EQ(mDir.Read("k.json"), written);
    EXPECT_EQ(mDir.Count(), 1u);
}

TEST_F(Config, ConcurrentUpdatesLeaveOneCompleteFile) {
    ASSERT_TRUE(Load("{}"));
    const auto update = [&](int port, const std::string& route) {
        mManager.GetConfigByName("tcp")->port = port;
        mManager.GetConfigByName("tcp")->route = route;
        EXPECT_TRUE(mManager.RefreshConfig());
    };
    for (int round = 0; round < 50; ++round) {
        std::thread other(update, round, "10.1.1.1");
        update(-round, "a.much.longer.address.than.that.of.the.other.one");
        other.join();
        // The second update started from the result of the first.
        int port = 12345;
        EXPECT_TRUE(Written()["console"]["tcp"].Get("port", port));
        EXPECT_EQ(port, mManager.GetConfigByName("tcp")->port);
    }
    EXPECT_EQ(mDir.Count(), 1u);
}

TEST(Json, AHandleSeesLaterChanges) {
    neb::CJsonObject doc;
    ASSERT_TRUE(doc.Parse("{\"a\":1}"));
    const neb::CJsonObject a = doc["a"];
    for (int i = 0; i < 100; ++i) {
        doc.Replace("filler" + std::to_string(i), i);  // moves every member
    }
    doc.Replace("a", 7);
    EXPECT_EQ(a.ToString(), "7");
    EXPECT_FALSE(doc.Parse("[1,"));
    EXPECT_EQ(doc.ToString(), "");
}

}  // namespace
}  // namespace kelp::test
