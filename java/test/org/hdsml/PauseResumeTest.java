package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * pause() and resume() in the order Android's lifecycle brings them: onPause while the analysis
 * executor is inside detect, a frame or two more from the executor after it, then onResume a long
 * while later. Absence threshold: the library's default, 5000 ms.
 */
class PauseResumeTest {
  private static final long THRESHOLD_MS = 5000;
  private static final long WAIT_S = 10;

  @Test
  void fromPauseToResumeNoFrameReachesTheLibraryAndAbsenceWaitsForTheThresholdAfterResume()
      throws Exception {
    try (PresenceDetector d = PresenceDetectorTest.openQuietly()) {
      d.setState(State.DETECT_ABSENCE, 30, 0, "user left");
      CameraFrame still = CameraFrame.scene(64, 48, 0, false, CameraFrame.Layout.NV21, 16, false);
      for (long ts = 100; ts <= 1000; ts += 100) {
        still.detectWith(d, ts, 10_000_000);
        assertTrue(NativeHooks.waitForIdle(d.handle()));
      }
      assertEquals(11, NativeHooks.facade(d)[10]);

      pauseWhileADetectIsInFlight(d, still, 1100);
      long handedOver = NativeHooks.facade(d)[10];
      assertEquals(12, handedOver, "the frame in flight was handed over before the pause");
      long analysed = NativeHooks.lastAnalysed(d.handle());

      // The executor still delivers frames after onPause: checked, not handed over.
      for (long ts = 1200; ts <= 1500; ts += 100) {
        DetectionResult r = still.detectWith(d, ts, 10_000_000);
        assertEquals(0.0f, r.getDetectTimeMillis());
        assertEquals(Status.NONE, r.getStatus());
        assertTrue(NativeHooks.waitForIdle(d.handle()));
      }
      assertEquals(handedOver, NativeHooks.facade(d)[10], "a paused detector handed a frame over");
      assertEquals(analysed, NativeHooks.lastAnalysed(d.handle()), "a frame was analysed paused");

      // A minute later the user is back: the timer starts at the first new frame.
      d.resume();
      long first = 60_000;
      long ts = first;
      for (; ts <= first + THRESHOLD_MS; ts += 100) {
        DetectionResult r = still.detectWith(d, ts, 10_000_000);
        assertTrue(NativeHooks.waitForIdle(d.handle()));
        assertNotEquals(Status.ABSENCE, r.getStatus(), "absence at " + ts);
        assertEquals(ts, NativeHooks.lastAnalysed(d.handle()));
      }
      // And absence does come once the threshold has passed on the new frames.
      Status status = Status.NONE;
      for (int i = 0; i < 5 && status != Status.ABSENCE; ++i, ts += 100) {
        status = still.detectWith(d, ts, 10_000_000).getStatus();
        assertTrue(NativeHooks.waitForIdle(d.handle()));
      }
      assertEquals(Status.ABSENCE, status);
    }
  }

  // pause() while the library's thread is still analysing a frame returns only
  // once that analysis is over: else its decision could land after resume(),
  // with its old timestamp. The thread is kept from finishing by locking the
  // frame's record before it lets the record go (rounds where it was quicker
  // are tried again): pause() must still be waiting when the record is let go.
  @Test
  void pauseReturnsOnlyOnceTheFrameBeingAnalysedIsDone(@TempDir Path dir) throws Exception {
    // At 2048x1536 an analysis lasts long enough to be caught most rounds.
    Path config = dir.resolve("large.json");
    Files.write(config, "{ \"vantor\": { \"motionResW\": 2048, \"motionResH\": 1536 } }"
        .getBytes(StandardCharsets.UTF_8));
    DetectorOptions quiet = new DetectorOptions.Builder().setLogListener(m -> {}).build();
    try (PresenceDetector d = PresenceDetector.open(config.toString(), quiet)) {
      d.setState(State.DETECT_MOTION, 30, 0, null);
      boolean locked = false;
      for (int round = 1; round <= 200 && !locked; ++round) {
        assertTrue(NativeHooks.waitForIdle(d.handle()));
        CameraFrame.small(round).detectWith(d, round, 10_000_000);
        long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(WAIT_S);
        while (NativeHooks.queuedFrames(d.handle()) != 0 && System.nanoTime() < deadline) {
          Thread.yield();  // until the library's thread has taken the frame
        }
        locked = NativeHooks.lockHeldRecord(d.handle());
      }
      assertTrue(locked, "the library's thread was never caught analysing");
      AtomicReference<Throwable> failure = new AtomicReference<>();
      Thread control;
      try {
        control = start(failure, d::pause);
        control.join(500);
        assertTrue(control.isAlive(), "pause() returned while a frame was being analysed");
      } finally {
        NativeHooks.unlockRecord();
      }
      control.join(TimeUnit.SECONDS.toMillis(WAIT_S));
      assertFalse(control.isAlive(), "pause() did not return");
      assertNull(failure.get());
      assertEquals(0, NativeHooks.heldRecords(d.handle()));
    }
  }

  // The camera thread is held inside detect (in the luma plane's getBuffer())
  // while another thread calls pause(): pause must wait for it.
  private static void pauseWhileADetectIsInFlight(PresenceDetector d, CameraFrame f, long ts)
      throws InterruptedException {
    CountDownLatch inDetect = new CountDownLatch(1);
    CountDownLatch release = new CountDownLatch(1);
    AtomicReference<Throwable> failure = new AtomicReference<>();
    Plane held = new Plane() {
      @Override
      public ByteBuffer getBuffer() {
        inDetect.countDown();
        try {
          release.await(WAIT_S, TimeUnit.SECONDS);
        } catch (InterruptedException e) {
          Thread.currentThread().interrupt();
        }
        return f.y.getBuffer();
      }

      @Override
      public int getPixelStride() {
        return f.y.getPixelStride();
      }

      @Override
      public int getRowStride() {
        return f.y.getRowStride();
      }
    };
    Thread camera =
        start(failure, () -> d.detect(held, f.u, f.v, f.width, f.height, ts, 10_000_000, false));
    assertTrue(inDetect.await(WAIT_S, TimeUnit.SECONDS));
    Thread control = start(failure, d::pause);
    long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(WAIT_S);
    while (control.getState() != Thread.State.WAITING && control.isAlive()
        && System.nanoTime() < deadline) {
      Thread.yield();
    }
    assertEquals(Thread.State.WAITING, control.getState(), "pause() did not wait for detect()");
    release.countDown();
    camera.join(TimeUnit.SECONDS.toMillis(WAIT_S));
    control.join(TimeUnit.SECONDS.toMillis(WAIT_S));
    assertFalse(camera.isAlive() || control.isAlive(), "detect or pause did not return");
    assertNull(failure.get());
  }

  private static Thread start(AtomicReference<Throwable> failure, Runnable body) {
    Thread t = new Thread(() -> {
      try {
        body.run();
      } catch (Throwable e) {
        failure.set(e);
      }
    });
    t.start();
    return t;
  }
}
