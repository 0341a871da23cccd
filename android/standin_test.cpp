// The Android sources of src/platform on a PC: the platform's functions are stand-ins that record
// what they are asked for.

#include <android/log.h>
#include <cutils/sockets.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/system_properties.h>

#include <map>
#include <string>
#include <vector>

#include "platform/localserver.h"
#include "platform/log.h"
#include "platform/systemproperty.h"
#include "platform/uniquefd.h"

struct prop_info {
    std::string value;
};

namespace {

int sLowestPriority = ANDROID_LOG_VERBOSE;
std::vector<std::string> sRecords;
std::map<std::string, prop_info> sProperties;
std::string sServer;

}  // namespace

extern "C" {

int __android_log_is_loggable(int prio, const char* tag, int) {
    return std::string("KELP") == tag && prio >= sLowestPriority ? 1 : 0;
}

int __android_log_write(int prio, const char* tag, const char* text) {
    sRecords.push_back(std::to_string(prio) + " " + tag + " " + text);
    errno = EBADF;
    return 1;
}

const prop_info* __system_property_find(const char* name) {
    const auto property = sProperties.find(name);
    return property != sProperties.end() ? &property->second : nullptr;
}

void __system_property_read_callback(const prop_info* info,
                                     void (*callback)(void*, const char*, const char*, uint32_t),
                                     void* cookie) {
    callback(cookie, "", info->value.c_str(), 1);
}

int socket_local_server(const char* name, int namespaceId, int type) {
    sServer = std::string(name) + " " + std::to_string(namespaceId);
    return *name != '\0' ? socket(AF_UNIX, type, 0) : -1;
}

}  // extern "C"

namespace kelp {
namespace {

TEST(AndroidLog, WritesWholeFilteredRecords) {
    sRecords.clear();
    errno = ENOENT;
    KLOG(kLogDebug) << "usb-->" << 7 << "\r\n";
    KLOG(kLogInfo) << "";
    KLOG(kLogError) << std::string(5000, 'x');
    EXPECT_EQ(errno, ENOENT);
    sLowestPriority = ANDROID_LOG_ERROR;
    KLOG(kLogInfo) << "not wanted";
    sLowestPriority = ANDROID_LOG_VERBOSE;
    ASSERT_EQ(sRecords.size(), 3u);
    EXPECT_EQ(sRecords[0], "3 KELP TestBody: usb-->7\\r\\n");
    EXPECT_EQ(sRecords[1], "4 KELP TestBody: ");
    EXPECT_EQ(sRecords[2].substr(0, 18), "6 KELP TestBody: x");
    // liblog takes 4068 bytes for the priority, the tag and the text with their terminators.
    EXPECT_GT(sRecords[2].size(), 3900u);
    EXPECT_LE(sRecords[2].size(), 4068u);
}

TEST(AndroidSystemProperty, FallsBackWhenAbsentOrEmpty) {
    sProperties = {{"set", {std::string(200, '1')}}, {"empty", {""}}};
    EXPECT_EQ(SystemProperty::Get("set", "0"), std::string(200, '1'));
    EXPECT_EQ(SystemProperty::Get("empty", "0"), "0");
    EXPECT_EQ(SystemProperty::Get("absent", "0"), "0");
}

TEST(AndroidLocalServer, ListensAbstractWithoutBlockingOrLeaking) {
    const UniqueFd fd(ListenLocalAbstract("/dev/socket/kelp"));
    EXPECT_EQ(sServer, "/dev/socket/kelp 0");
    ASSERT_TRUE(fd.Ok());
    EXPECT_EQ(fcntl(fd.Get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd.Get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(ListenLocalAbstract(""), -1);
}

}  // namespace
}  // namespace kelp
