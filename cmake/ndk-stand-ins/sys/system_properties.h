// Stand-in for bionic's <sys/system_properties.h>, declaring only what the
// library calls, with bionic's own signature (see android/log.h here for why).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
