// What every JNI entry point of the binding needs: Java exceptions raised from
// C++ (a C++ exception must never unwind into the JVM), and a JNIEnv on the
// binding's own thread, which the JVM did not start. Set up once by JNI_OnLoad;
// the functions may then be called from any thread.
#pragma once

#include <jni.h>

#include <string>

namespace hdsml_jni {

// The Java exception types the native side raises (org.hdsml.NativeErrors).
enum class JavaError {
  kIo = 0,
  kIllegalArgument = 1,
  kIllegalState = 2,
  kOutOfMemory = 3,
  kRuntime = 4
};

// Caches the classes and methods the binding calls back (class lookups by name
// work only on threads the JVM started). Returns the JNI version, or JNI_ERR.
jint onLoad(JavaVM* vm);

// Raises a Java exception of `kind` with `message` (any bytes; decoded as UTF-8
// by the Java side). The caller returns to Java right after.
void throwJava(JNIEnv* env, JavaError kind, const std::string& message);

// Turns the C++ exception being handled into a Java one; call from catch (...).
// bad_alloc becomes OutOfMemoryError, any other exception `kind`, or
// RuntimeException for an exception that is not a std::exception.
void throwCurrentException(JNIEnv* env, JavaError kind);

// Attaches the calling thread, which the JVM did not start, as the daemon thread
// `name`; the caller detaches it before it ends. Null if the JVM refuses.
JNIEnv* attachDaemon(JavaVM* vm, const char* name);

// The cached org.hdsml.LogForwarder.deliver(byte[]) and dropped(long) methods.
jmethodID logForwarderDeliver();
jmethodID logForwarderDropped();

}  // namespace hdsml_jni
