package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

class FrameInputTest {
  private static PresenceDetector detector;
  private static long timestamp;

  @BeforeAll
  static void open() throws IOException {
    detector = DetectorLifecycleTest.openQuietly();
    detector.setState(State.DETECT_MOTION, 30, 0, null);
  }

  @AfterAll
  static void close() {
    detector.close();
  }

  private interface Call {
    void detect(PresenceDetector d, CameraFrame f);
  }

  private static Arguments bad(String name, String message, Call call) {
    return Arguments.of(name, message, call);
  }

  // The good frame is 64x48 NV21 with 16 bytes of padding: luma rows 80 bytes
  // apart, 3824 bytes in all; chroma 32x24, rows 80 bytes apart, 1903 bytes each.
  static Stream<Arguments> badInputs() {
    return Stream.of(
        bad("null plane", "plane y: is null",
            (d, f) -> d.detect(null, f.u, f.v, 64, 48, 1, 0, false)),
        bad("null buffer", "plane v: getBuffer() returned null",
            (d, f) -> d.detect(f.y, f.u, new BufferPlane(null, 2, 80), 64, 48, 1, 0, false)),
        bad("heap buffer",
            "plane y: its buffer is not direct: a heap buffer has no address the library could"
                + " read (use the camera's buffer or ByteBuffer.allocateDirect)",
            (d, f) -> d.detect(new BufferPlane(ByteBuffer.allocate(3824), 1, 80), f.u, f.v, 64,
                48, 1, 0, false)),
        bad("pixel stride 0", "plane y: pixel stride 0, must be 1 or 2",
            (d, f) -> d.detect(with(f.y, 0, 80), f.u, f.v, 64, 48, 1, 0, false)),
        bad("pixel stride 3", "plane u: pixel stride 3, must be 1 or 2",
            (d, f) -> d.detect(f.y, with(f.u, 3, 80), f.v, 64, 48, 1, 0, false)),
        bad("negative pixel stride", "plane v: pixel stride -2, must be 1 or 2",
            (d, f) -> d.detect(f.y, f.u, with(f.v, -2, 80), 64, 48, 1, 0, false)),
        bad("row stride shorter than a row",
            "plane y: row stride 63 is shorter than a row of 64 samples at pixel stride 1 (64"
                + " bytes)",
            (d, f) -> d.detect(with(f.y, 1, 63), f.u, f.v, 64, 48, 1, 0, false)),
        bad("interleaved chroma row too short",
            "plane u: row stride 62 is shorter than a row of 32 samples at pixel stride 2 (63"
                + " bytes)",
            (d, f) -> d.detect(f.y, with(f.u, 2, 62), f.v, 64, 48, 1, 0, false)),
        bad("negative row stride",
            "plane v: row stride -80 is shorter than a row of 32 samples at pixel stride 2 (63"
                + " bytes)",
            (d, f) -> d.detect(f.y, f.u, with(f.v, 2, -80), 64, 48, 1, 0, false)),
        bad("luma buffer a byte short",
            "plane y: 3823 bytes from position 0, but a 64x48 plane with pixel stride 1 and row"
                + " stride 80 needs 3824",
            (d, f) -> d.detect(cut(f.y, 0, 3823), f.u, f.v, 64, 48, 1, 0, false)),
        bad("chroma buffer read past its start",
            "plane v: 1902 bytes from position 1, but a 32x24 plane with pixel stride 2 and row"
                + " stride 80 needs 1903",
            (d, f) -> d.detect(f.y, f.u, cut(f.v, 1, 1902), 64, 48, 1, 0, false)),
        bad("zero width", "frame size 0x48: width and height must be positive",
            (d, f) -> d.detect(f.y, f.u, f.v, 0, 48, 1, 0, false)),
        bad("negative height", "frame size 64x-48: width and height must be positive",
            (d, f) -> d.detect(f.y, f.u, f.v, 64, -48, 1, 0, false)),
        bad("width beyond the rows",
            "plane y: row stride 80 is shorter than a row of 2147483647 samples at pixel stride 1"
                + " (2147483647 bytes)",
            (d, f) -> d.detect(f.y, f.u, f.v, Integer.MAX_VALUE, 48, 1, 0, false)),
        bad("height beyond the buffer",
            "plane y: 3824 bytes from position 0, but a 64x2147483647 plane with pixel stride 1"
                + " and row stride 80 needs 171798691744",
            (d, f) -> d.detect(f.y, f.u, f.v, 64, Integer.MAX_VALUE, 1, 0, false)));
  }

  // Each bad input is refused with a message naming the plane and the numbers,
  // the library is not called (its call count stands still), and the detector
  // goes on working.
  @ParameterizedTest(name = "{0}")
  @MethodSource("badInputs")
  void badInputsAreRefusedBeforeTheLibrarySeesThem(String name, String message, Call call) {
    try (CameraFrame f = DetectorLifecycleTest.frame(0)) {
      long calls = NativeHooks.facade(detector)[NativeHooks.DETECT_COUNT];
      IllegalArgumentException e =
          assertThrows(IllegalArgumentException.class, () -> call.detect(detector, f));
      assertEquals(message, e.getMessage());
      assertEquals(calls, NativeHooks.facade(detector)[NativeHooks.DETECT_COUNT]);
      f.detectWith(detector, ++timestamp, 10_000_000);
      assertEquals(calls + 1, NativeHooks.facade(detector)[NativeHooks.DETECT_COUNT]);
    }
  }

  static Stream<Arguments> smallestPlanes() {
    return Stream.of(Arguments.of(64, 48, CameraFrame.Layout.NV21, 16),
        Arguments.of(64, 48, CameraFrame.Layout.NV12, 0),
        Arguments.of(65, 49, CameraFrame.Layout.I420, 3),
        Arguments.of(65, 49, CameraFrame.Layout.NV21, 0),
        Arguments.of(320, 240, CameraFrame.Layout.NV21, 0),  // every last sample is read
        Arguments.of(320, 240, CameraFrame.Layout.I420, 8),
        Arguments.of(640, 480, CameraFrame.Layout.NV21, 0),
        Arguments.of(1280, 720, CameraFrame.Layout.I420, 0),
        Arguments.of(1280, 720, CameraFrame.Layout.NV12, 0),
        Arguments.of(10, 8, CameraFrame.Layout.NV21, 0));
  }

  // Planes cut after their last sample, as Android cuts them, and followed by
  // an inaccessible page: what the checks accept, the library reads without
  // going a byte further (else the JVM would crash here), and analyses.
  @ParameterizedTest(name = "{0}x{1} {2}, {3} bytes padding")
  @MethodSource("smallestPlanes")
  void theSmallestPlanesTheChecksAcceptAreEnough(int width, int height, CameraFrame.Layout layout,
      int padding) {
    try (CameraFrame f = new CameraFrame(Scenes.i420(width, height, 0, true), width, height,
             layout, padding, CameraFrame.Memory.PAGE_END)) {
      long ts = ++timestamp;
      f.detectWith(detector, ts, 10_000_000);
      assertTrue(NativeHooks.waitForIdle(detector));
      assertEquals(ts, NativeHooks.lastAnalysed(detector));
    }
  }

  // The library copies what it needs during detect: planes made unreadable as
  // soon as it returns are never touched while the frame is analysed.
  @Test
  void planesMayBeClosedAsSoonAsDetectReturns() {
    for (int i = 0; i < 5; ++i) {
      try (CameraFrame f = new CameraFrame(Scenes.i420(640, 480, i, true), 640, 480,
               CameraFrame.Layout.NV21, 32, CameraFrame.Memory.PAGE_END)) {
        long ts = ++timestamp;
        f.detectWith(detector, ts, 10_000_000);
        f.revoke();
        assertTrue(NativeHooks.waitForIdle(detector));
        assertEquals(ts, NativeHooks.lastAnalysed(detector));
      }
    }
  }

  private static Plane with(Plane p, int pixelStride, int rowStride) {
    return new BufferPlane(p.getBuffer(), pixelStride, rowStride);
  }

  private static Plane cut(Plane p, int position, int length) {
    ByteBuffer b = CameraFrame.slice(p.getBuffer(), 0, position + length);
    ((java.nio.Buffer) b).position(position);
    return new BufferPlane(b, p.getPixelStride(), p.getRowStride());
  }
}
