package org.hdsml;

/**
 * Receives the library's messages (start-up lines, state changes, absence reports, and per-frame
 * lines in debug mode) instead of {@code java.util.logging}; set it with {@link
 * DetectorOptions.Builder#setLogListener}.
 *
 * <p><b>Thread and order.</b> The library writes its messages on the thread that made it speak
 * (the caller of {@code open}, {@code setState}, {@code pause}, {@code resume}, {@code detect} or
 * {@code close}, or its own motion thread); the binding only queues them there, so none of those
 * calls ever waits for the listener. The listener is called on a thread of the binding's, the
 * daemon "hdsml log" (one per detector opened), in the order the library wrote the messages, one
 * call at a time. Messages written by {@code close} still arrive after it returns; the thread then ends.
 *
 * <p><b>Falling behind.</b> Up to 256 messages wait for the listener. When it is slower than the
 * library writes, the messages that find the queue full are dropped and counted, and the next
 * message the listener gets says how many: "N messages of the library dropped: the LogListener
 * fell behind".
 *
 * <p>Calling the detector from the listener throws {@link IllegalStateException}; anything the
 * listener throws is logged and dropped.
 */
public interface LogListener {
  /** One message, as the library wrote it, without its final line feed. */
  void onMessage(String message);
}
