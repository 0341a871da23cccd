// Stand-in for libcutils' header of this name: the part that src/platform uses.
#pragma once

#define ANDROID_SOCKET_NAMESPACE_ABSTRACT 0

extern "C" int socket_local_server(const char* name, int namespaceId, int type);
