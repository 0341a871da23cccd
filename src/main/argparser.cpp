#include "main/argparser.h"

#include <getopt.h>
#include <unistd.h>

#include "config/consoleconfig.h"
#include "platform/log.h"

namespace kelp {

namespace {

// Selector values of the options that have no letter.
enum Selector : int { kIp = 1, kPort, kUsb, kSerial, kOptArg = 20 };

// In no row of kEchoes: "second" is accepted and has no effect.
constexpr int kIgnored = 5;

struct Echo {
    int option;
    const char* text;  // in front of the argument
    LogSeverity missingSeverity;
    const char* missing;  // without an argument
};

constexpr Echo kEchoes[] = {
    {'f', "param f value: ", kLogDebug, "param f value: "},
    {'m', "param m value: ", kLogDebug, "param m value: "},
    {'t', "param t value: ", kLogDebug, "param t value: "},
    {'x', "param x value: ", kLogDebug, "param x value: "},
    {kIp, "param IP value: ", kLogError, "no IP"},
    {kPort, "param PORT value: ", kLogError, "no PORT number"},
    {kUsb, "param USB value: ", kLogError, "no USB"},
    {kSerial, "param SERIAL value: ", kLogError, "no SERIAL"},
    {kOptArg, "optarg: ", kLogDebug, "optarg: no arg"},
};

const Echo* FindEcho(int option) {
    for (const Echo& echo : kEchoes) {
        if (echo.option == option) {
            return &echo;
        }
    }
    return nullptr;
}

std::string sJsonPath = kDefaultConfigPath;

}  // namespace

int ArgParser(int argc, char** argv) {
    static int selector = 0;
    // The spelling of "micorsecond" is part of the interface.
    static const struct option kOptions[] = {
        {"mode", required_argument, nullptr, 'm'},
        {"file", required_argument, nullptr, 'f'},
        {"hex", required_argument, nullptr, 'x'},
        {"second", required_argument, nullptr, kIgnored},
        {"micorsecond", required_argument, nullptr, 't'},
        {"ip", required_argument, &selector, kIp},
        {"port", required_argument, &selector, kPort},
        {"usb", required_argument, &selector, kUsb},
        {"serial", required_argument, &selector, kSerial},
        {"optarg", optional_argument, &selector, kOptArg},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    int index = 0;
    int result;
    while ((result = getopt_long_only(argc, argv, "m:x:t:", kOptions, &index)) != -1) {
        const Echo* const echo = FindEcho(result != 0 ? result : selector);
        if (echo == nullptr) {
            continue;
        }
        if (optarg == nullptr) {
            KLOG(echo->missingSeverity) << echo->missing;
            continue;
        }
        KLOG(kLogDebug) << echo->text << optarg;
        if (result == 'f') {
            sJsonPath = optarg;
        }
    }
    return result;
}

bool GetJsonPath(std::string& path) {
    path = sJsonPath;
    if (access(path.c_str(), F_OK) != 0) {
        // Emptied before it is logged: the record always reads "json file() not exist. ".
        path.clear();
        KLOG(kLogError) << "json file(" << path << ") not exist. ";
        return false;
    }
    KLOG(kLogDebug) << "json file(" << path << ") exist. ";
    return true;
}

}  // namespace kelp
