package org.hdsml;

import java.io.IOException;
import java.nio.charset.Charset;

/**
 * Exceptions the native side raises, built here from the message's bytes: the library's texts
 * (configuration paths, JSON errors) need not be valid UTF-8, which JNI's own string functions
 * would require.
 */
final class NativeErrors {
  // Kinds, as the native side numbers them.
  static final int IO = 0;
  static final int ILLEGAL_ARGUMENT = 1;
  static final int ILLEGAL_STATE = 2;
  static final int OUT_OF_MEMORY = 3;
  static final int RUNTIME = 4;

  private static final Charset UTF_8 = Charset.forName("UTF-8");

  private NativeErrors() {}

  @SuppressWarnings("unused")  // called by the native side
  private static Throwable create(int kind, byte[] message) {
    String text = new String(message, UTF_8);
    switch (kind) {
      case IO:
        return new IOException(text);
      case ILLEGAL_ARGUMENT:
        return new IllegalArgumentException(text);
      case ILLEGAL_STATE:
        return new IllegalStateException(text);
      case OUT_OF_MEMORY:
        return new OutOfMemoryError(text);
      default:
        return new RuntimeException(text);
    }
  }
}
