// Stand-in for bionic's <sys/system_properties.h>, declaring only what the
// library calls, with bionic's own signature. The Linux build compiles the
// Android-only branches against it (target hdsml_android_branches), so that a
// mistake there shows up before a phone build; nothing links against it. No
// Debian package carries bionic's header (<android/log.h>, by contrast, comes
// from android-liblog-dev, the genuine one).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
