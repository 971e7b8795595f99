package org.hdsml;

import java.nio.charset.Charset;
import java.util.logging.Level;
import java.util.logging.Logger;

/**
 * Hands the library's messages to the app's listener or to java.util.logging, on the binding's
 * "hdsml log" thread (java/native/JavaLogForwarder.h), one at a time and in order.
 */
final class LogForwarder {
  static final Logger LOGGER = Logger.getLogger("org.hdsml");
  private static final Charset UTF_8 = Charset.forName("UTF-8");

  // Set while the calling thread is inside a delivery. A thread-local flag: the
  // thread of a detector just closed may still be delivering while the next
  // detector's thread starts.
  private static final ThreadLocal<Boolean> delivering = new ThreadLocal<>();

  private final LogListener listener;

  LogForwarder(LogListener listener) {
    this.listener = listener;
  }

  /** Whether the calling thread is inside a listener, where the detector must not be called. */
  static boolean isDeliveringOnThisThread() {
    return delivering.get() != null;
  }

  // Called by the native side with one message in UTF-8 (as bytes: the library's
  // text is not guaranteed to be valid UTF-8, and a String built by JNI would have
  // to be).
  @SuppressWarnings("unused")
  private void deliver(byte[] message) {
    hand(new String(message, UTF_8), Level.INFO);
  }

  // Called by the native side when `count` messages found the queue full, before
  // the message that came after them.
  @SuppressWarnings("unused")
  private void dropped(long count) {
    hand(count + (count == 1 ? " message" : " messages")
        + " of the library dropped: the LogListener fell behind", Level.WARNING);
  }

  // Nothing may escape back into native code.
  private void hand(String text, Level level) {
    delivering.set(Boolean.TRUE);
    try {
      if (listener != null) {
        listener.onMessage(text);
      } else {
        LOGGER.log(level, text);
      }
    } catch (Throwable t) {
      LOGGER.log(Level.WARNING, "the hdsml log listener threw; its message is dropped", t);
    } finally {
      delivering.remove();
    }
  }
}
