#include <getopt.h>
#include <gtest/gtest.h>

#include <cstring>

#include "main/argparser.h"
#include "support/logcapture.h"

namespace kelp::test {
namespace {

using Records = std::vector<std::string>;

Records Parse(std::vector<std::string> args) {
    args.insert(args.begin(), "kelp");
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (std::string& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    optind = 0;  // restart the scanner
    LogCapture log;
    EXPECT_EQ(ArgParser(static_cast<int>(args.size()), argv.data()), -1);
    return log.Take();
}

TEST(ArgParser, EchoesOptionsAndIgnoresTheRest) {
    const std::pair<std::vector<std::string>, std::string> kCases[] = {
        {{"--mode", "a", "-hex=b", "-micorsecond", "c", "-m", "1", "-x2", "-t", "3"},
         "m value: a,x value: b,t value: c,m value: 1,x value: 2,t value: 3,"},
        {{"-ip", "10.0.0.1", "--port=5", "--usb", "u", "--serial", "s"},
         "IP value: 10.0.0.1,PORT value: 5,USB value: u,SERIAL value: s,"},
        // "second" and unknown, ambiguous or incomplete options log nothing.
        {{"--second", "9", "--nope", "-z", "--m=1", "stray", "--ip=1", "--port"}, "IP value: 1,"},
    };
    for (const auto& [args, values] : kCases) {
        std::string seen;
        for (const std::string& record : Parse(args)) {
            EXPECT_EQ(record.find("D ArgParser: param "), 0u) << record;
            seen += record.substr(strlen("D ArgParser: param ")) + ",";
        }
        EXPECT_EQ(seen, values);
    }
    EXPECT_EQ(Parse({"--optarg=x", "--optarg"}),
              (Records{"D ArgParser: optarg: x", "D ArgParser: optarg: no arg"}));
}

}  // namespace
}  // namespace kelp::test
