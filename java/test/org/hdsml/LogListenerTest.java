package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** How the library's messages reach a LogListener: thread, order, and a listener that lags. */
class LogListenerTest {
  private static final String CONFIG = PresenceDetectorTest.CONFIG;
  private static final Pattern EXPOSURE =
      Pattern.compile("Camera exposure time in microseconds (\\d+)");
  private static final Pattern DROPPED =
      Pattern.compile("(\\d+) messages of the library dropped: the LogListener fell behind");

  // A listener stuck in its first message while the camera thread writes 400
  // lines (each new exposure is one): every detect returns regardless. Freed,
  // it sticks again in its second message, which leaves room for one more line,
  // written then, before 100 more find the queue full again. Every line written
  // is accounted for, in order: delivered, or counted in a note that comes
  // where the dropped ones would have, right before the line that follows them
  // (or alone, when none follows yet).
  @Test
  void aListenerThatHangsHoldsUpNoCallAndIsToldHowManyMessagesItMissed() throws Exception {
    CountDownLatch inFirst = new CountDownLatch(1);
    CountDownLatch inSecond = new CountDownLatch(1);
    CountDownLatch free = new CountDownLatch(1);
    CountDownLatch freeAgain = new CountDownLatch(1);
    List<String> messages = new ArrayList<>();  // the listener's calls never overlap
    List<Thread> threads = new ArrayList<>();
    PresenceDetector d = PresenceDetector.open(CONFIG, new DetectorOptions.Builder()
        .setLogListener(m -> {
          messages.add(m);
          threads.add(Thread.currentThread());
          if (messages.size() <= 2) {
            (messages.size() == 1 ? inFirst : inSecond).countDown();
            await(messages.size() == 1 ? free : freeAgain);
          }
        }).build());
    CameraFrame f = CameraFrame.small(0);
    int[] written = {0};
    try {
      assertTrue(inFirst.await(10, TimeUnit.SECONDS));
      d.setState(State.DETECT_MOTION, 30, 0, null);
      assertTrue(writeLines(d, f, written, 400), "detect waited for the listener");
      free.countDown();
      assertTrue(inSecond.await(10, TimeUnit.SECONDS));
      assertTrue(writeLines(d, f, written, 101), "detect waited for the listener");
    } finally {
      free.countDown();
      freeAgain.countDown();
    }
    assertTrue(d.awaitLogDelivery(10_000));
    writeLines(d, f, written, 1);  // after the drops were told
    assertTrue(d.awaitLogDelivery(10_000));
    d.close();
    Thread log = threads.get(0);
    log.join(10_000);
    assertFalse(log.isAlive(), "the delivering thread did not end after close");

    assertTrue(threads.stream().allMatch(t -> t == log));
    assertEquals("hdsml log", log.getName());
    assertNotEquals(Thread.currentThread(), log);
    int line = 0;
    int pending = 0;
    List<Integer> notes = new ArrayList<>();
    for (String m : messages) {
      Matcher exposure = EXPOSURE.matcher(m);
      Matcher dropped = DROPPED.matcher(m);
      if (dropped.matches()) {
        assertEquals(0, pending, "two notes in a row");
        pending = Integer.parseInt(dropped.group(1));
        notes.add(pending);
      } else if (exposure.matches()) {
        int next = (int) (Long.parseLong(exposure.group(1)) - 10_000_000);
        assertEquals(line + pending + 1, next, "after line " + line + " and a note of " + pending);
        line = next;
        pending = 0;
      }
    }
    assertEquals(written[0], line);
    assertEquals(2, notes.size(), "notes: " + notes);
    assertEquals(100, (int) notes.get(1));  // the queue was full again
  }

  // Writes `count` lines on a camera thread, each from a detect with a new
  // exposure; false if they were not all written within 30 s.
  private static boolean writeLines(PresenceDetector d, CameraFrame f, int[] written, int count)
      throws InterruptedException {
    Thread camera = new Thread(() -> {
      for (int i = 0; i < count; ++i) {
        f.detectWith(d, written[0] + 1, 10_000_000 + written[0] + 1);
        ++written[0];
      }
    });
    camera.start();
    camera.join(30_000);
    return !camera.isAlive();
  }

  private static void await(CountDownLatch latch) {
    try {
      latch.await(60, TimeUnit.SECONDS);
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  // An exposure of 4.3 s does not fit the library's 32 bits: saturated it stays
  // a long one, so the library switches to low light after a window of them
  // (truncated it would be 5 ms, daylight). The switch is written on the
  // library's own thread, the rest on the caller's; all arrive on the binding's
  // thread, in order. A listener that calls the detector is refused, and one
  // that throws loses that message and nothing else.
  @Test
  void messagesFromEveryThreadArriveOnTheBindingsThreadWhichEndsAfterClose() throws Exception {
    List<String> messages = new ArrayList<>();
    List<Thread> threads = new ArrayList<>();
    List<String> refused = new ArrayList<>();
    PresenceDetector[] d = new PresenceDetector[1];
    CountDownLatch opened = new CountDownLatch(1);
    d[0] = PresenceDetector.open(CONFIG, new DetectorOptions.Builder().setLogListener(m -> {
      messages.add(m);
      threads.add(Thread.currentThread());
      if (m.startsWith("State changed")) {
        try {
          opened.await(10, TimeUnit.SECONDS);
          d[0].pause();
        } catch (IllegalStateException e) {
          refused.add(e.getMessage());
        } catch (InterruptedException e) {
          Thread.currentThread().interrupt();
        }
        throw new IllegalArgumentException("listener failure");
      }
    }).build());
    opened.countDown();
    d[0].setState(State.DETECT_MOTION, 30, 0, "test");
    CameraFrame f = CameraFrame.small(0);
    for (int i = 1; i <= 32; ++i) {
      f.detectWith(d[0], i, 4_300_000_000L);
      assertTrue(NativeHooks.waitForIdle(d[0].handle()));
    }
    assertTrue(d[0].awaitLogDelivery(10_000));
    d[0].close();
    Thread log = threads.get(0);
    log.join(10_000);
    assertFalse(log.isAlive(), "the delivering thread did not end after close");

    assertEquals("[HDSMLClient] Loaded Config file: " + CONFIG, messages.get(0));
    assertEquals("[a LogListener must not call the PresenceDetector]", refused.toString());
    int state = messages.indexOf("State changed to DETECT_MOTION");
    int exposure = messages.indexOf("Camera exposure time in microseconds 2147483647");
    int lowLight = messages.indexOf("Switching to low light frame differencing");
    assertTrue(0 < state && state < exposure && exposure < lowLight, messages.toString());
    assertTrue(threads.stream().allMatch(t -> t == log));
    assertEquals("hdsml log", log.getName());
    assertTrue(log.isDaemon());
    assertTrue(messages.stream().noneMatch(m -> m.endsWith("\n")));
  }
}
