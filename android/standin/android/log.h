// Stand-in for the NDK's header of this name: the part that src/platform uses, at API level 31.
#pragma once

extern "C" {

enum android_LogPriority {
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
};

int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_is_loggable(int prio, const char* tag, int default_prio);

}  // extern "C"
