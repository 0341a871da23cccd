// The key names of the configuration file, for all code that reads, checks or prints it.
#pragma once

namespace kelp {

inline constexpr char kKeyConsole[] = "console";
inline constexpr char kKeySupport[] = "support";
inline constexpr char kKeyActive[] = "active";
inline constexpr char kKeyRoute[] = "route";
inline constexpr char kKeyPort[] = "port";

inline constexpr char kKeyReceiveMode[] = "receive-mode";
inline constexpr char kKeyMode[] = "mode";
inline constexpr char kModeTail[] = "tail";
inline constexpr char kModeTimeTick[] = "timetick";
inline constexpr char kKeyTail[] = "tail";
inline constexpr char kKeyMillisecond[] = "millisecond";

inline constexpr char kKeyModule[] = "module";
inline constexpr char kKeySupportModules[] = "support-modules";
inline constexpr char kKeyInteraction[] = "interaction";
inline constexpr char kKeyKeepAlive[] = "keep-alive";
inline constexpr char kKeyPath[] = "path";
inline constexpr char kKeyQuiet[] = "quiet";
inline constexpr char kKeyWhiteList[] = "whitelist";
inline constexpr char kKeyTestCommands[] = "test-commands";

inline constexpr char kKeyTimeout[] = "timeout";  // of consoles and of modules

}  // namespace kelp
