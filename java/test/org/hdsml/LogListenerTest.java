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
      Pattern.compile("(\\d+) messages? of the library dropped: the LogListener fell behind");

  // A listener stuck in its first message while the camera thread writes 600
  // lines (each new exposure is one): every detect returns regardless. Then,
  // freed, it gets what fitted the queue in order, one message telling how
  // many were dropped, placed where they were, and what comes after.
  @Test
  void aListenerThatHangsHoldsUpNoCallAndIsToldHowManyMessagesItMissed() throws Exception {
    CountDownLatch stuck = new CountDownLatch(1);
    CountDownLatch free = new CountDownLatch(1);
    List<String> messages = new ArrayList<>();  // the listener's calls never overlap
    List<Thread> threads = new ArrayList<>();
    PresenceDetector d = PresenceDetector.open(CONFIG, new DetectorOptions.Builder()
        .setLogListener(m -> {
          messages.add(m);
          threads.add(Thread.currentThread());
          if (messages.size() == 1) {
            stuck.countDown();
            try {
              free.await(60, TimeUnit.SECONDS);
            } catch (InterruptedException e) {
              Thread.currentThread().interrupt();
            }
          }
        }).build());
    CameraFrame f = CameraFrame.small(0);
    int lines = 600;
    Thread camera;
    try {
      assertTrue(stuck.await(10, TimeUnit.SECONDS));
      camera = new Thread(() -> {
        d.setState(State.DETECT_MOTION, 30, 0, null);
        for (int i = 1; i <= lines; ++i) {
          f.detectWith(d, i, 10_000_000 + i);
        }
      });
      camera.start();
      camera.join(30_000);
    } finally {
      free.countDown();
    }
    assertFalse(camera.isAlive(), "detect waited for the listener");
    assertTrue(d.awaitLogDelivery(10_000));
    f.detectWith(d, lines + 1, 20_000_000);  // one more line, after the drops were told
    assertTrue(d.awaitLogDelivery(10_000));
    d.close();
    Thread log = threads.get(0);
    log.join(10_000);
    assertFalse(log.isAlive(), "the delivering thread did not end after close");

    // Every message on the binding's thread; exposures in the order written.
    assertTrue(threads.stream().allMatch(t -> t == log));
    assertEquals("hdsml log", log.getName());
    assertNotEquals(Thread.currentThread(), log);
    List<Integer> told = new ArrayList<>();
    int dropNotes = 0;
    long last = 0;
    for (String m : messages) {
      Matcher exposure = EXPOSURE.matcher(m);
      Matcher dropped = DROPPED.matcher(m);
      if (exposure.matches()) {
        long ns = Long.parseLong(exposure.group(1));
        assertTrue(ns > last, m + " after " + last);
        told.add((int) (ns - 10_000_000));
        last = ns;
      } else if (dropped.matches()) {
        ++dropNotes;
        int before = told.isEmpty() ? 0 : told.get(told.size() - 1);
        told.add(-Integer.parseInt(dropped.group(1)));
        // What was dropped were lines before+1 .. lines: the queue stayed full to the end.
        assertEquals(lines - before, Integer.parseInt(dropped.group(1)), m);
      }
    }
    assertEquals(1, dropNotes, "messages: " + messages);
    assertEquals(10_000_000, told.get(told.size() - 1), "the last line, after the note");
    assertTrue(told.get(told.size() - 2) < 0, "the note is not right before the next line");
    assertTrue(told.size() > 200, "most of the queue was not delivered: " + told.size());
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
