// Stand-in for bionic's header of this name: the part that src/platform uses, at API level 31.
#pragma once

#include <stdint.h>

extern "C" {

struct prop_info;

const prop_info* __system_property_find(const char* name);
void __system_property_read_callback(const prop_info* info,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie);

}  // extern "C"
