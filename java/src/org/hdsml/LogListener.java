package org.hdsml;

/**
 * Receives the library's messages (start-up lines, state changes, absence reports, and per-frame
 * lines in debug mode) instead of {@code java.util.logging}; set it with {@link
 * DetectorOptions.Builder#setLogListener}.
 *
 * <p>Called on the thread that made the library speak: the caller of {@code open}, {@code
 * setState}, {@code pause}, {@code resume}, {@code detect} or {@code close}, or the library's own
 * motion thread. Calls never overlap. Keep it short, and never wait in it for a thread that calls
 * the detector: the library may hold its locks meanwhile. Calling the detector from the listener
 * throws {@link IllegalStateException}; anything the listener throws is logged and dropped.
 */
public interface LogListener {
  /** One message, as the library wrote it, without its final line feed. */
  void onMessage(String message);
}
