package org.hdsml;

import java.nio.charset.Charset;
import java.util.logging.Level;
import java.util.logging.Logger;

/** Hands the library's messages to the app's listener or to java.util.logging. */
final class LogForwarder {
  static final Logger LOGGER = Logger.getLogger("org.hdsml");
  private static final Charset UTF_8 = Charset.forName("UTF-8");

  // The thread inside a delivery, if any. The library never delivers two messages
  // at once, so one field is enough.
  private static volatile Thread delivering;

  private final LogListener listener;

  LogForwarder(LogListener listener) {
    this.listener = listener;
  }

  /** Whether the calling thread is inside a listener, where the detector must not be called. */
  static boolean isDeliveringOnThisThread() {
    return delivering == Thread.currentThread();
  }

  // Called by the native side with one message in UTF-8 (as bytes: the library's
  // text is not guaranteed to be valid UTF-8, and a String built by JNI would have
  // to be). Nothing may escape back into native code.
  @SuppressWarnings("unused")
  private void deliver(byte[] message) {
    delivering = Thread.currentThread();
    try {
      String text = new String(message, UTF_8);
      if (listener != null) {
        listener.onMessage(text);
      } else {
        LOGGER.info(text);
      }
    } catch (Throwable t) {
      LOGGER.log(Level.WARNING, "the hdsml log listener threw; its message is dropped", t);
    } finally {
      delivering = null;
    }
  }
}
