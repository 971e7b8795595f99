package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import org.junit.jupiter.api.Test;

class LogForwardingTest {
  private static final String CONFIG = DetectorLifecycleTest.CONFIG;

  /** Every message with the thread it came on. */
  private static final class Recorder implements LogListener {
    final List<String> messages = Collections.synchronizedList(new ArrayList<>());
    final List<Thread> threads = Collections.synchronizedList(new ArrayList<>());

    @Override
    public void onMessage(String message) {
      messages.add(message);
      threads.add(Thread.currentThread());
    }

    Thread threadOf(String message) {
      synchronized (messages) {
        int i = messages.indexOf(message);
        assertTrue(i >= 0, "no \"" + message + "\" in " + messages);
        return threads.get(i);
      }
    }
  }

  // An exposure of 4.3 s does not fit the library's 32 bits. Passed saturated it
  // stays a long exposure, so the library switches to low light after a window
  // of them; truncated it would be 5 ms, daylight. The switch is announced on
  // the library's own thread, which must be attached to the JVM for the message
  // to arrive, and detached again when the detector closes.
  @Test
  void messagesArriveFromEveryThreadAndTheMotionThreadIsDetachedAtClose() throws Exception {
    Recorder recorder = new Recorder();
    PresenceDetector d =
        PresenceDetector.open(CONFIG, new DetectorOptions.Builder().setLogListener(recorder).build());
    d.setState(State.DETECT_MOTION, 30, 0, "test");
    try (CameraFrame f = DetectorLifecycleTest.frame(0)) {
      for (int i = 1; i <= 32; ++i) {
        f.detectWith(d, i, 4_300_000_000L);
        assertTrue(NativeHooks.waitForIdle(d));
      }
    }
    d.close();

    assertEquals("[HDSMLClient] Loaded Config file: " + CONFIG, recorder.messages.get(0));
    assertEquals(Thread.currentThread(), recorder.threadOf("State changed to DETECT_MOTION"));
    assertEquals(Thread.currentThread(),
        recorder.threadOf("Camera exposure time in microseconds 2147483647"));
    Thread motionThread = recorder.threadOf("Switching to low light frame differencing");
    assertNotSame(Thread.currentThread(), motionThread);
    assertEquals("hdsml motion thread", motionThread.getName());
    assertTrue(motionThread.isDaemon());
    motionThread.join(10_000);
    assertFalse(motionThread.isAlive(), "the motion thread was not detached from the JVM");
    for (String m : recorder.messages) {
      assertFalse(m.endsWith("\n"), m);
    }
  }

  // A listener that throws, or calls the detector (which would deadlock the
  // library), loses its message and nothing else.
  @Test
  void aMisbehavingListenerCannotHarmTheDetector() throws IOException {
    List<Throwable> refused = new ArrayList<>();
    PresenceDetector[] detector = new PresenceDetector[1];
    LogListener listener = message -> {
      if (detector[0] != null) {
        try {
          detector[0].pause();
        } catch (IllegalStateException e) {
          refused.add(e);
        }
      }
      throw new IllegalArgumentException("listener failure");
    };
    try (PresenceDetector d = PresenceDetector.open(CONFIG,
             new DetectorOptions.Builder().setLogListener(listener).build())) {
      detector[0] = d;
      d.setState(State.DETECT_MOTION, 30, 0, null);
      d.setState(State.DETECT_ABSENCE, 30, 1, null);
    }
    assertEquals(2, refused.size());
    assertEquals("a LogListener must not call the PresenceDetector", refused.get(0).getMessage());
  }

  @Test
  void withoutAListenerMessagesGoToJavaUtilLogging() throws IOException {
    List<LogRecord> records = Collections.synchronizedList(new ArrayList<>());
    Handler handler = new Handler() {
      @Override
      public void publish(LogRecord record) {
        records.add(record);
      }

      @Override
      public void flush() {}

      @Override
      public void close() {}
    };
    LogForwarder.LOGGER.addHandler(handler);
    try {
      PresenceDetector.open(CONFIG).close();
    } finally {
      LogForwarder.LOGGER.removeHandler(handler);
    }
    assertEquals("[HDSMLClient] Loaded Config file: " + CONFIG, records.get(0).getMessage());
    assertEquals(Level.INFO, records.get(0).getLevel());
    assertEquals("org.hdsml", records.get(0).getLoggerName());
  }
}
