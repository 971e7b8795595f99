package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.lang.ref.WeakReference;
import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.LongConsumer;
import java.util.logging.LogRecord;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.MethodSource;

/** The binding on synthetic frames: lifecycle, configuration, inputs, messages. */
class PresenceDetectorTest {
  static final String CONFIG = System.getProperty("org.hdsml.test.config");
  private static final String CLOSED = "the PresenceDetector is closed";
  private static final String REENTRY = "the PresenceDetector was called from inside its own"
      + " detect(), by a Plane's method on the same thread: a Plane must only return its buffer and"
      + " strides";
  private static final String CANNOT_OPEN =
      "%s: cannot open the configuration file (missing, unreadable or a directory)";

  static PresenceDetector openQuietly() throws IOException {
    return PresenceDetector.open(
        CONFIG, new DetectorOptions.Builder().setLogListener(m -> {}).build());
  }

  // The file's name is not ASCII: it must reach the library, and come back in
  // its messages, byte for byte. '%s' in a message stands for the path.
  @ParameterizedTest
  @CsvSource(delimiter = '|', value = {
      "<missing>|IOException|" + CANNOT_OPEN,
      "<directory>|IOException|" + CANNOT_OPEN,
      "{ \"vantor\": |IllegalArgumentException|%s(1): expected value",
      "{ \"vantor\": { \"motionResW\": 320 } }|IllegalArgumentException|"
          + "%s: missing key (vantor.motionResH)",
      "{ \"vantor\": { \"motionResW\": \"1e3\", \"motionResH\": 2 } }|"
          + "IllegalArgumentException|%s: vantor.motionResW is not an integer: \"1e3\"",
      "{ \"vantor\": { \"motionResW\": 99999999999, \"motionResH\": 2 } }|"
          + "IllegalArgumentException|%s: vantor.motionResW is out of range: must be an even"
          + " number from 2 to 4096, got 99999999999"})
  void badConfigurationsThrowTheLibrarysMessageAndLeaveNothingOpen(String json, String type,
      String message, @TempDir Path dir) throws IOException {
    Path path = dir.resolve("réglages-hdsml.json");
    if (json.equals("<directory>")) {
      Files.createDirectory(path);
    } else if (!json.equals("<missing>")) {
      Files.write(path, json.getBytes(StandardCharsets.UTF_8));
    }
    Exception e = assertThrows(Exception.class, () -> PresenceDetector.open(path.toString()));
    assertEquals(type, e.getClass().getSimpleName());
    assertEquals(String.format(message, path), e.getMessage());
    openQuietly().close();  // nothing was left installed
  }

  // Without a listener, messages go to java.util.logging. (The thread of a
  // detector closed earlier may still be logging there meanwhile: the record is
  // looked for by its text.)
  @Test
  void aSecondOpenIsRefusedWhileTheFirstStaysUsableAndCallsAfterCloseThrow() throws IOException {
    List<LogRecord> records = new CopyOnWriteArrayList<>();
    LogForwarder.LOGGER.setFilter(r -> !records.add(r));
    PresenceDetector first = PresenceDetector.open(CONFIG);
    assertTrue(first.awaitLogDelivery(10_000));
    LogForwarder.LOGGER.setFilter(null);
    String loaded = "[HDSMLClient] Loaded Config file: " + CONFIG;
    LogRecord r = records.stream().filter(x -> x.getMessage().equals(loaded)).findFirst()
        .orElseThrow(() -> new AssertionError("not logged: " + loaded));
    assertEquals("INFO org.hdsml", r.getLevel() + " " + r.getLoggerName());
    IllegalStateException e = assertThrows(IllegalStateException.class, () -> openQuietly());
    assertTrue(e.getMessage().contains("already open"), e.getMessage());
    first.setState(State.DETECT_MOTION, 30, 0, null);
    assertEquals(Status.NONE, CameraFrame.small(0).detectWith(first, 1, 10_000_000).getStatus());
    first.close();
    first.close();
    CameraFrame f = CameraFrame.small(0);
    for (Runnable call : new Runnable[] {() -> f.detectWith(first, 2, 0),
             () -> first.setState(State.DETECT_ABSENCE, 30, 2, "x"), first::pause, first::resume}) {
      assertEquals(CLOSED, assertThrows(IllegalStateException.class, call::run).getMessage());
    }
  }

  // A camera thread calls detect as fast as it can and a control thread changes
  // state while close comes at a different moment each round: no crash, and both
  // loops end on the "closed" exception.
  @Test
  void closeRacingDetectAndStateLoopsNeverCrashes() throws Exception {
    CameraFrame f = CameraFrame.small(0);
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

  // Runs `step` until the detector says it is closed; anything else is unexpected.
  private static Thread loop(AtomicReference<Throwable> unexpected, CountDownLatch started,
      LongConsumer step) {
    Thread t = new Thread(() -> {
      try {
        for (long ts = 1;; ++ts) {
          step.accept(ts);
          started.countDown();
        }
      } catch (Throwable e) {
        if (!(e instanceof IllegalStateException && CLOSED.equals(e.getMessage()))) {
          unexpected.set(e);
        }
      }
    });
    t.start();
    return t;
  }

  private interface Call {
    void detect(PresenceDetector d, CameraFrame f);
  }

  private static Arguments bad(String message, Call call) {
    return Arguments.of(message, call);
  }

  // CameraFrame.small(): 64x48 NV21 with 16 bytes of padding; luma rows 80
  // bytes apart, 3824 bytes in all; chroma 32x24, rows 80 apart, 1903 bytes each.
  static Stream<Arguments> badInputs() {
    return Stream.of(
        bad("plane y: is null", (d, f) -> d.detect(null, f.u, f.v, 64, 48, 1, 0, false)),
        bad("plane y: its buffer is not direct: a heap buffer has no address the library could"
                + " read (use the camera's buffer or ByteBuffer.allocateDirect)",
            (d, f) -> d.detect(new BufferPlane(ByteBuffer.allocate(3824), 1, 80), f.u, f.v, 64,
                48, 1, 0, false)),
        bad("plane u: pixel stride 3, must be 1 or 2",
            (d, f) -> d.detect(f.y, strides(f.u, 3, 80), f.v, 64, 48, 1, 0, false)),
        bad("plane u: row stride 62 is shorter than a row of 32 samples at pixel stride 2 (63"
                + " bytes)",
            (d, f) -> d.detect(f.y, strides(f.u, 2, 62), f.v, 64, 48, 1, 0, false)),
        bad("plane y: 3823 bytes from position 0, but a 64x48 plane with pixel stride 1 and row"
                + " stride 80 needs 3824",
            (d, f) -> d.detect(cut(f.y, 0, 3823), f.u, f.v, 64, 48, 1, 0, false)),
        bad("plane v: 1902 bytes from position 1, but a 32x24 plane with pixel stride 2 and row"
                + " stride 80 needs 1903",
            (d, f) -> d.detect(f.y, f.u, cut(f.v, 1, 1902), 64, 48, 1, 0, false)),
        bad("frame size 0x-48: width and height must be positive",
            (d, f) -> d.detect(f.y, f.u, f.v, 0, -48, 1, 0, false)),
        bad("plane y: row stride 80 is shorter than a row of 2147483647 samples at pixel stride 1"
                + " (2147483647 bytes)",
            (d, f) -> d.detect(f.y, f.u, f.v, Integer.MAX_VALUE, 48, 1, 0, false)),
        bad("plane y: 3824 bytes from position 0, but a 64x2147483647 plane with pixel stride 1"
                + " and row stride 80 needs 171798691744",
            (d, f) -> d.detect(f.y, f.u, f.v, 64, Integer.MAX_VALUE, 1, 0, false)));
  }

  // Each is refused with a message naming the plane and the numbers, the
  // library is not called (its call count stands still), and the detector goes
  // on working.
  @ParameterizedTest
  @MethodSource("badInputs")
  void badInputsAreRefusedBeforeTheLibrarySeesThem(String message, Call call) throws IOException {
    try (PresenceDetector detector = openQuietly()) {
      CameraFrame f = CameraFrame.small(0);
      Exception e = assertThrows(IllegalArgumentException.class, () -> call.detect(detector, f));
      assertEquals(message, e.getMessage());
      assertEquals(1, NativeHooks.facade(detector)[10]);  // 1 + the number of calls
      f.detectWith(detector, 1, 10_000_000);
      assertEquals(2, NativeHooks.facade(detector)[10]);
    }
  }

  // Planes cut after their last sample, as Android cuts them, each ending at an
  // inaccessible page, and made unreadable as soon as detect returns. What the
  // checks accept is enough: the library reads no byte beyond, and copies during
  // detect what the analysis afterwards needs (else the JVM would crash here).
  // At 320x240 (the motion resolution) every last sample is read.
  @ParameterizedTest
  @CsvSource({"64, 48, NV21, 16", "64, 48, NV12, 0", "65, 49, I420, 3", "65, 49, NV21, 0",
      "320, 240, NV21, 0", "320, 240, I420, 8", "640, 480, NV21, 0", "1280, 720, I420, 0",
      "1280, 720, NV12, 0", "10, 8, NV21, 0"})
  void theSmallestPlanesAreEnoughAndMayBeClosedOnceDetectReturns(int width, int height,
      CameraFrame.Layout layout, int padding) throws IOException {
    try (PresenceDetector detector = openQuietly()) {
      detector.setState(State.DETECT_MOTION, 30, 0, null);
      CameraFrame f = CameraFrame.scene(width, height, 0, true, layout, padding, true);
      f.detectWith(detector, 7, 10_000_000);
      f.revoke();
      assertTrue(NativeHooks.waitForIdle(detector.handle()));
      assertEquals(7, NativeHooks.lastAnalysed(detector.handle()));
    }
  }

  private interface Inner {
    void call(PresenceDetector d, CameraFrame f);
  }

  static Stream<Arguments> callsFromInsideAPlane() {
    List<Arguments> cases = new ArrayList<>();
    for (String accessor : new String[] {"getBuffer", "getPixelStride", "getRowStride"}) {
      cases.add(Arguments.of(accessor, "detect", (Inner) (d, f) -> f.detectWith(d, 99, 0)));
      cases.add(Arguments.of(accessor, "close", (Inner) (d, f) -> d.close()));
    }
    cases.add(Arguments.of("getBuffer", "pause", (Inner) (d, f) -> d.pause()));
    cases.add(Arguments.of("getRowStride", "resume", (Inner) (d, f) -> d.resume()));
    cases.add(Arguments.of("getPixelStride", "setState",
        (Inner) (d, f) -> d.setState(State.DETECT_ABSENCE, 30, 99, null)));
    return cases.stream();
  }

  // A v plane (read last, when the outer call already holds y and u) whose
  // `accessor` calls the detector on detect's own thread. The inner call is
  // refused and the plane goes on to answer: the outer frame, and it alone,
  // reaches the library (the call count goes up by one), and the detector
  // stays open and usable.
  @ParameterizedTest(name = "{1} from {0}")
  @MethodSource("callsFromInsideAPlane")
  void aPlaneThatCallsItsDetectorIsRefusedWithIllegalStateException(String accessor, String call,
      Inner inner) throws IOException {
    try (PresenceDetector d = openQuietly()) {
      d.setState(State.DETECT_MOTION, 30, 0, null);
      CameraFrame f = CameraFrame.small(0);
      List<Throwable> refused = new ArrayList<>();
      Plane v = new Plane() {
        @Override
        public ByteBuffer getBuffer() {
          callInside("getBuffer");
          return f.v.getBuffer();
        }

        @Override
        public int getPixelStride() {
          callInside("getPixelStride");
          return f.v.getPixelStride();
        }

        @Override
        public int getRowStride() {
          callInside("getRowStride");
          return f.v.getRowStride();
        }

        private void callInside(String name) {
          if (name.equals(accessor)) {
            try {
              inner.call(d, f);
            } catch (Throwable e) {
              refused.add(e);
            }
          }
        }
      };
      d.detect(f.y, f.u, v, f.width, f.height, 1, 10_000_000, false);
      assertEquals(1, refused.size(), "the inner " + call + " was let in");
      assertEquals(IllegalStateException.class, refused.get(0).getClass());
      assertEquals(REENTRY, refused.get(0).getMessage());
      assertEquals(2, NativeHooks.facade(d)[10]);
      assertFalse(d.isClosed());
      f.detectWith(d, 2, 10_000_000);
      assertEquals(3, NativeHooks.facade(d)[10]);
    }
  }

  // What the Java side never passes (it refuses a plane without a buffer first)
  // is refused by the native side too, instead of being read.
  @Test
  void theNativeSideRefusesAMissingBufferInsteadOfReadingIt() throws IOException {
    try (PresenceDetector d = openQuietly()) {
      CameraFrame f = CameraFrame.small(0);
      long[] fields = new long[DetectionResult.FIELD_COUNT];
      String[] names = {"y", "u", "v"};
      for (int missing = 0; missing < 3; ++missing) {
        ByteBuffer[] b = {f.y.getBuffer(), f.u.getBuffer(), f.v.getBuffer()};
        b[missing] = null;
        Exception e = assertThrows(IllegalArgumentException.class,
            () -> PresenceDetector.nativeDetect(d.handle(), b[0], 0, 1, 80, b[1], 0, 2, 80, b[2], 0,
                2, 80, 64, 48, 1, 10_000_000, false, fields));
        assertEquals("plane " + names[missing] + ": no buffer", e.getMessage());
      }
      assertEquals(1, NativeHooks.facade(d)[10]);
    }
  }

  // An Android configuration change can drop the analyzer that holds the
  // detector. Its listener refers back to it, as an app's listener would (the
  // activity holds both), which must not keep it alive. Once the collector has
  // found it unreachable, the next open() releases the library and says so.
  @Test
  void aDetectorDroppedWithoutCloseIsReleasedByTheNextOpenWithAWarning() throws IOException {
    WeakReference<PresenceDetector> lost = openAndDrop();
    for (int i = 0; i < 50 && lost.get() != null; ++i) {
      System.gc();
    }
    assertNull(lost.get(), "something still holds the dropped detector");
    List<LogRecord> records = new CopyOnWriteArrayList<>();
    LogForwarder.LOGGER.setFilter(r -> !records.add(r));
    try {
      openQuietly().close();
    } finally {
      LogForwarder.LOGGER.setFilter(null);
    }
    LogRecord warning = records.stream().filter(r -> r.getMessage().contains("leaked")).findFirst()
        .orElseThrow(() -> new AssertionError("no warning in " + records));
    assertEquals("WARNING", warning.getLevel().toString());
    assertTrue(warning.getMessage().startsWith("a PresenceDetector leaked: it became unreachable"
        + " without close()"), warning.getMessage());
    StringWriter trace = new StringWriter();
    warning.getThrown().printStackTrace(new PrintWriter(trace));
    assertTrue(trace.toString().contains("openAndDrop"), trace.toString());
    openQuietly().close();  // released once, and nothing left behind
  }

  private static WeakReference<PresenceDetector> openAndDrop() throws IOException {
    PresenceDetector[] holder = new PresenceDetector[1];
    holder[0] = PresenceDetector.open(CONFIG,
        new DetectorOptions.Builder().setLogListener(m -> {
          if (holder[0] != null && holder[0].isClosed()) {
            throw new AssertionError("a message after close");
          }
        }).build());
    holder[0].setState(State.DETECT_MOTION, 30, 0, null);
    CameraFrame.small(0).detectWith(holder[0], 1, 10_000_000);
    assertTrue(holder[0].awaitLogDelivery(10_000));
    return new WeakReference<>(holder[0]);
  }

  private static Plane strides(Plane p, int pixelStride, int rowStride) {
    return new BufferPlane(p.getBuffer(), pixelStride, rowStride);
  }

  private static Plane cut(Plane p, int position, int length) {
    ByteBuffer b = CameraFrame.slice(p.getBuffer(), 0, position + length);
    ((Buffer) b).position(position);
    return new BufferPlane(b, p.getPixelStride(), p.getRowStride());
  }
}
