// The modem and PCBA modules, each with its daemon in every condition.

#include <cstring>

#include "support/bench.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Modules : public Bench {
  protected:
    std::unique_ptr<Peer> Daemon(const std::string& name, Peer::Script script) const {
        return std::make_unique<Peer>(mDir.Path(name), LocalNamespace::kFilesystem,
                                      std::move(script));
    }
};

using Modem = Modules;
using Pcba = Modules;

TEST_F(Modem, WhatTheDaemonSaysGoesToWhoSpokeLast) {
    const auto modem = Daemon("modem", Peer::Echo("modem"));
    Start(true);
    Station tcp = Tcp(), other = Tcp(), usb = Station::Line(mUsb.Master());
    EXPECT_TRUE(modem->Push("nobody has spoken yet"));
    ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : HandleResponse: input error\n"));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(tcp.Answers("AT+M1\r\n", "<modem:AT+M1\r\n>"));
        ASSERT_TRUE(usb.Answers("at+m2\r\n", "<modem:at+m2\r\n>"));
        ASSERT_TRUE(other.Answers("AT+M3\r\n", "<modem:AT+M3\r\n>"));
    }
    for (const std::string& report : {std::string("\r\nRING\r\n"), std::string(300000, 'r')}) {
        ASSERT_TRUE(modem->Push(report));
        EXPECT_TRUE(other.Answers("", report));
    }
    other.HalfClose();
    ASSERT_TRUE(mKelp->WaitForLog("tcp-->ioctl read error.errno->5\n", 2));
    ASSERT_TRUE(modem->Push("late"));
    EXPECT_TRUE(other.Answers("", "late"));
    // Of a console that is off by now nothing is written, to nobody.
    ASSERT_TRUE(tcp.Answers("AT+M4\r\n", "<modem:AT+M4\r\n>"));
    ASSERT_TRUE(usb.Answers("ZAT+TCP=0\r\n", Ok("ZAT+TCP=0")));
    EXPECT_EQ(tcp.ReceiveToEnd(), "");
    ASSERT_TRUE(usb.Answers("ZAT+TCP=1\r\n", Ok("ZAT+TCP=1")));
    Station fresh = Tcp();
    ASSERT_TRUE(modem->Push("stale"));
    EXPECT_TRUE(fresh.Answers("X\r\n", Unsupported("X")));
    EXPECT_EQ(mKelp->Logged("Write Error"), 0);
}

TEST_F(Modem, ALostDaemonIsServedAgainWhenItReturns) {
    auto modem = Daemon("modem", Peer::Echo("modem"));
    Start(true);
    Station station = Tcp();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(station.Answers("AT+M1\r\n", "<modem:AT+M1\r\n>"));
        ASSERT_TRUE(modem->Push("half a li"));
        EXPECT_TRUE(station.Answers("", "half a li"));
        modem.reset();
        ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : Run: disconnect ,retry:", i + 1));
        const int64_t cpu = mKelp->CpuMs();
        for (int j = 0; j < 5; ++j) {
            EXPECT_TRUE(station.Answers("AT+Mlost\r\nX\r\n", Unsupported("X")));
        }
        EXPECT_LT(mKelp->CpuMs() - cpu, 200);
        modem = Daemon("modem", Peer::Echo("modem"));
        const int64_t begin = MonotonicMs();
        EXPECT_TRUE(station.Answers("AT+M2\r\n", "<modem:AT+M2\r\n>"));
        EXPECT_LT(MonotonicMs() - begin, 3000);
    }
    // Once more perhaps for a connection that the dying daemon still took.
    EXPECT_LE(mKelp->Logged("disconnect ,retry:"), 6);
}

TEST_F(Modem, AbsentDaemonIsTried21TimesASecondApart) {
    const int64_t begin = MonotonicMs();
    Start(true);
    ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : Run: Connect Fail. Exit!!!\n"));
    EXPECT_GE(MonotonicMs() - begin, 21000);
    EXPECT_EQ(mKelp->Logged(" E KELP    : TryConnect: reach max count(20). Connect fail.\n"), 1);
    EXPECT_TRUE(KELP_SANITIZED || StaysIdle(mKelp->Pid()));
    Station station = Tcp();
    EXPECT_TRUE(station.Answers("AT+M\r\nX\r\n", Unsupported("X")));
}

std::string Int(int32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string Text(const std::string& text) {
    return Int(static_cast<int32_t>(text.size())) + text;
}

std::string Record(const std::string& request, const std::string& text, int32_t result = 0) {
    return Int(result) + Text(request) + Text(text);
}

std::string Value(const std::string& request, const std::string& line) {
    return request + "\r\n\r\n" + line + "\r\n\r\nOK\r\n";
}

std::string Mismatch(const std::string& request) {
    return request + "\r\n\r\n6012\r\n\r\nERROR\r\n";
}

TEST_F(Pcba, Records) {
    const std::string req = "AT+P?";
    const struct {
        const char* name;
        std::string bytes, answer;
        bool close = false;  // else an incomplete record ends with the module's time-out
    } rows[] = {
        {"echo and text", Record(req, "hello"), Value(req, "+P:hello")},
        {"no text", Record(req, ""), Ok(req)},
        {"negative text length", Int(0) + Text(req) + Int(-7), Ok(req)},
        {"result", Record(req, "hello", 6009), req + "\r\n\r\nOut of range\r\n\r\nERROR\r\n"},
        {"a whole answer", Record(req, req + "\r\nOK"), req + "\r\nOK"},
        {"no echo", Record("", "hello"), Mismatch(req)},
        {"other echo", Record("AT+Q?", "hello"), Mismatch(req)},
        {"negative echo length", Int(0) + Int(-4) + Int(0), Mismatch(req)},
        {"most negative echo length", Int(0) + Int(INT32_MIN) + Int(0), Mismatch(req)},
        {"large", Record(req, std::string(1 << 20, 'x')),
         Value(req, "+P:" + std::string(1 << 20, 'x'))},
        {"too large", Int(0) + Text(req) + Int((1 << 20) + 1), Mismatch(req)},
        {"too large echo", Int(0) + Int(INT32_MAX), Mismatch(req)},
        {"cut short", Record(req, "hello").substr(0, 16), Mismatch(req), true},
        {"nothing", "", Mismatch(req), true},
        {"stays incomplete", Record(req, "hello").substr(0, 3), Mismatch(req)},
    };
    std::string bytes;
    bool close = false;
    for (const char* name : {"pcba", "fm"}) {
        const bool pcba = name == std::string("pcba");
        const auto daemon = Daemon(name, [&](const std::string&) {
            return Peer::Answer{bytes, close};
        });
        Start(pcba);
        Station station = Tcp();
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            bytes = row.bytes;
            close = row.close;
            std::string answer = row.answer;
            std::string request = req;
            if (!pcba) {
                request = "AT+F?";
                for (std::string* text : {&bytes, &answer}) {
                    for (size_t p; (p = text->find("+P")) != std::string::npos;)
                        (*text)[p + 1] = 'F';
                }
            }
            EXPECT_TRUE(station.Answers(request + "\r\n", answer));
        }
    }
}

TEST_F(Pcba, AnswersInOrderOfTheRequestsEachOnItsConsole) {
    for (const bool keepAlive : {true, false}) {
        // Requests of eight bytes follow each other without a gap; so do the records.
        const auto daemon = Daemon("pcba", [](const std::string& requests) {
            std::string records;
            for (size_t i = 0; i + 8 <= requests.size(); i += 8) {
                records += Record(requests.substr(i, 8), "v" + requests.substr(i, 8).substr(5));
            }
            return Peer::Answer{records};
        });
        Start(keepAlive);
        Station stations[] = {Tcp(), Station::Local()};
        std::string requests[2], answers[2];
        for (int i = 0; i < 200; ++i) {
            const std::string number = std::to_string(100 + i);
            requests[i % 2] += "AT+P=" + number + "\r\n";
            answers[i % 2] += Value("AT+P=" + number, "+P:v" + number);
        }
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(stations[i].Send(requests[i]));
        }
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(stations[i].Answers("", answers[i]));
        }
        EXPECT_EQ(daemon->Connections(), keepAlive ? 1 : 200);
    }
}

TEST_F(Pcba, ALateAnswerIsNobodysAndAPieceIsPutTogether) {
    bool silent = true;
    auto daemon = Daemon("pcba", [&](const std::string& request) {
        return Peer::Answer{silent ? "" : Record(request, "v")};
    });
    Start(true);
    Station station = Tcp();
    ASSERT_TRUE(station.Send("AT+P1\r\n"));
    ASSERT_TRUE(daemon->WaitForRequest("AT+P1"));
    const std::string record = Record("AT+P1", "pieces");
    for (const char byte : record) {
        ASSERT_TRUE(daemon->Push(std::string(1, byte)));
    }
    EXPECT_TRUE(station.Answers("", Value("AT+P1", "+P1:pieces")));
    EXPECT_TRUE(station.Answers("AT+P2\r\n", Mismatch("AT+P2")));  // times out
    daemon->Push(Record("AT+P2", "late"));
    silent = false;
    EXPECT_TRUE(station.Answers("AT+P3\r\n", Value("AT+P3", "+P3:v")));
    daemon.reset();
    EXPECT_TRUE(station.Answers("AT+P4\r\n", Mismatch("AT+P4")));
    daemon = Daemon("pcba", [](const std::string& r) { return Peer::Answer{Record(r, "v")}; });
    EXPECT_TRUE(station.Answers("AT+P5\r\n", Value("AT+P5", "+P5:v")));
}

}  // namespace
}  // namespace kelp::test
