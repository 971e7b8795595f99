package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.Consumer;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

class DetectorLifecycleTest {
  static final String CONFIG = System.getProperty("org.hdsml.test.config");
  private static final DetectorOptions QUIET =
      new DetectorOptions.Builder().setLogListener(message -> {}).build();

  @TempDir Path dir;

  static PresenceDetector openQuietly() throws IOException {
    return PresenceDetector.open(CONFIG, QUIET);
  }

  // A path with non-ASCII characters: it must reach the library, and come back
  // in its messages, byte for byte.
  private Path configFile(String json) throws IOException {
    Path path = dir.resolve("réglages-hdsml.json");
    if (json != null) {
      Files.write(path, json.getBytes(StandardCharsets.UTF_8));
    }
    return path;
  }

  static Stream<Arguments> badConfigurations() {
    String cannotOpen = "%s: cannot open the configuration file (missing, unreadable or a directory)";
    return Stream.of(
        Arguments.of("missing", null, IOException.class, cannotOpen),
        Arguments.of("directory", "<dir>", IOException.class, cannotOpen),
        Arguments.of("malformed", "{ \"vantor\": ", IllegalArgumentException.class,
            "%s(1): expected value"),
        Arguments.of("missing key", "{ \"vantor\": { \"motionResW\": 320 } }",
            IllegalArgumentException.class, "%s: missing key (vantor.motionResH)"),
        Arguments.of("not an integer", "{ \"vantor\": { \"motionResW\": \"1e3\", \"motionResH\": 2 } }",
            IllegalArgumentException.class, "%s: vantor.motionResW is not an integer: \"1e3\""),
        Arguments.of("out of range",
            "{ \"vantor\": { \"motionResW\": 99999999999, \"motionResH\": 2 } }",
            IllegalArgumentException.class,
            "%s: vantor.motionResW is out of range: must be an even number from 2 to 4096, got "
                + "99999999999"));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("badConfigurations")
  void badConfigurationsThrowTheLibrarysMessageAndLeaveNothingOpen(String what, String json,
      Class<? extends Exception> type, String message) throws IOException {
    Path path = configFile("<dir>".equals(json) ? null : json);
    if ("<dir>".equals(json)) {
      Files.createDirectory(path);
    }
    Exception e = assertThrows(type, () -> PresenceDetector.open(path.toString(), QUIET));
    assertEquals(String.format(message, path), e.getMessage());
    // Nothing was left installed: the next open succeeds.
    openQuietly().close();
  }

  @Test
  void aSecondOpenIsRefusedWhileTheFirstStaysUsable() throws IOException {
    try (PresenceDetector first = openQuietly()) {
      IllegalStateException e = assertThrows(IllegalStateException.class, () -> openQuietly());
      assertTrue(e.getMessage().contains("already open"), e.getMessage());
      first.setState(State.DETECT_MOTION, 30, 0, null);
      try (CameraFrame f = frame(0)) {
        assertEquals(Status.NONE, f.detectWith(first, 1, 10_000_000).getStatus());
      }
    }
    openQuietly().close();
  }

  static Stream<Arguments> callsAfterClose() {
    return Stream.of(
        Arguments.of("detect", (Consumer<PresenceDetector>) d -> {
          try (CameraFrame f = frame(0)) {
            f.detectWith(d, 1, 0);
          }
        }),
        Arguments.of("setState",
            (Consumer<PresenceDetector>) d -> d.setState(State.DETECT_ABSENCE, 30, 0, "x")),
        Arguments.of("pause", (Consumer<PresenceDetector>) PresenceDetector::pause),
        Arguments.of("resume", (Consumer<PresenceDetector>) PresenceDetector::resume));
  }

  @ParameterizedTest(name = "{0}")
  @MethodSource("callsAfterClose")
  void callsAfterCloseThrowAndCloseIsIdempotent(String name, Consumer<PresenceDetector> call)
      throws IOException {
    PresenceDetector d = openQuietly();
    d.close();
    d.close();
    assertTrue(d.isClosed());
    IllegalStateException e = assertThrows(IllegalStateException.class, () -> call.accept(d));
    assertEquals("the PresenceDetector is closed", e.getMessage());
  }

  // A detect that is inside the detector (here: reading its planes) when close
  // is called finishes on a live library; only then does close destroy it.
  @Test
  void closeWaitsForADetectInProgress() throws Exception {
    PresenceDetector d = openQuietly();
    d.setState(State.DETECT_MOTION, 30, 0, null);
    CountDownLatch inside = new CountDownLatch(1);
    CountDownLatch release = new CountDownLatch(1);
    try (CameraFrame f = frame(0)) {
      Plane slowY = new Plane() {
        @Override
        public ByteBuffer getBuffer() {
          inside.countDown();
          awaitQuietly(release);
          return f.y.getBuffer();
        }

        @Override
        public int getPixelStride() {
          return 1;
        }

        @Override
        public int getRowStride() {
          return f.y.getRowStride();
        }
      };
      AtomicReference<Object> outcome = new AtomicReference<>();
      Thread camera = new Thread(() -> {
        try {
          outcome.set(d.detect(slowY, f.u, f.v, f.width, f.height, 1, 0, false));
        } catch (Throwable t) {
          outcome.set(t);
        }
      });
      camera.start();
      assertTrue(inside.await(10, TimeUnit.SECONDS));
      Thread closer = new Thread(d::close);
      closer.start();
      while (!d.isClosed()) {
        Thread.yield();  // close has begun once the flag is up
      }
      release.countDown();
      camera.join(10_000);
      closer.join(10_000);
      assertFalse(camera.isAlive() || closer.isAlive());
      assertTrue(outcome.get() instanceof DetectionResult, String.valueOf(outcome.get()));
    }
  }

  // A camera thread calls detect as fast as it can and a control thread changes
  // state while close comes at a different moment each round: no crash, and both
  // loops end on the "closed" exception.
  @Test
  void closeRacingDetectAndStateLoopsNeverCrashes() throws Exception {
    try (CameraFrame f = frame(0)) {
      for (int round = 0; round < 30; ++round) {
        PresenceDetector d = openQuietly();
        d.setState(State.DETECT_MOTION, 30, 0, null);
        CountDownLatch started = new CountDownLatch(1 + round % 7);
        AtomicReference<Throwable> unexpected = new AtomicReference<>();
        Thread camera = loop(unexpected, started, ts -> f.detectWith(d, ts, 10_000_000));
        Thread control = loop(unexpected, started, ts -> {
          d.setState(ts % 2 == 0 ? State.DETECT_ABSENCE : State.DETECT_MOTION, 30, ts, null);
          if (ts % 5 == 0) {
            d.pause();
            d.resume();
          }
        });
        assertTrue(started.await(10, TimeUnit.SECONDS));
        d.close();
        camera.join(10_000);
        control.join(10_000);
        assertFalse(camera.isAlive() || control.isAlive(), "a loop did not end");
        assertNull(unexpected.get());
      }
    }
  }

  private interface Step {
    void run(long timestamp);
  }

  // Runs `step` until the detector says it is closed; anything else is unexpected.
  private static Thread loop(AtomicReference<Throwable> unexpected, CountDownLatch started,
      Step step) {
    Thread t = new Thread(() -> {
      try {
        for (long ts = 1;; ++ts) {
          step.run(ts);
          started.countDown();
        }
      } catch (IllegalStateException e) {
        if (!"the PresenceDetector is closed".equals(e.getMessage())) {
          unexpected.set(e);
        }
      } catch (Throwable t2) {
        unexpected.set(t2);
      }
    });
    t.start();
    return t;
  }

  static CameraFrame frame(int index) {
    return new CameraFrame(Scenes.i420(64, 48, index, true), 64, 48, CameraFrame.Layout.NV21, 16,
        CameraFrame.Memory.DIRECT);
  }

  private static void awaitQuietly(CountDownLatch latch) {
    try {
      latch.await(10, TimeUnit.SECONDS);
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
