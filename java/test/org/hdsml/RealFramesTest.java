package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assertions.fail;

import java.awt.image.BufferedImage;
import java.awt.image.DataBufferByte;
import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;

/**
 * The people walking through data/vtest.avi, through the binding as a camera app would hand them
 * over, against hds-replay's report on the same frames (the fixture in JavaTests.cmake):
 * DETECT_MOTION, DETECT_ABSENCE from frame 40, then the last frame held still.
 */
class RealFramesTest {
  private static final Path FRAMES = Paths.get(System.getProperty("org.hdsml.test.frames"));

  /** One row of hds-replay's CSV, read by column name. */
  private static final class Row {
    long timestamp;
    State state;
    int status;
  }

  private static List<Row> replay;
  private static File[] pngs;

  @BeforeAll
  static void readFixture() throws IOException {
    Path csv = FRAMES.resolve("replay.csv");
    if (!Files.exists(csv)) {
      String why = csv + " missing: data/vtest.avi was not there for the fixture (scripts/samples)";
      if (System.getenv("CI") != null) {
        fail(why);
      }
      Assumptions.assumeTrue(false, why);
    }
    List<String> lines = Files.readAllLines(csv, StandardCharsets.UTF_8);
    List<String> header = Arrays.asList(lines.get(0).split(",", -1));
    int ts = header.indexOf("timestamp_ms");
    int state = header.indexOf("state");
    int status = header.indexOf("status");
    replay = new ArrayList<>();
    for (String line : lines.subList(1, lines.size())) {
      String[] cells = line.split(",", -1);
      Row r = new Row();
      r.timestamp = Long.parseLong(cells[ts]);
      r.state = State.valueOf(cells[state]);
      r.status = Integer.parseInt(cells[status]);
      replay.add(r);
    }
    pngs = FRAMES.resolve("png").toFile().listFiles();
    Arrays.sort(pngs);
  }

  // Every frame in lockstep (the next goes in once the library's thread has
  // analysed the previous), states changed where hds-replay changed them. The
  // binding must add and lose nothing: each result equals the facade's fields
  // right after the call. Motion must be reported, then absence, on the frames
  // hds-replay reports them or one later: detect() copies the decision in force
  // when it runs, which in lockstep is the one on the frame before, or on this
  // frame when the library's thread wins the race to it (hds-replay reads the
  // decision again once its frame is analysed). A free-running camera would add
  // one frame of delay for each frame dropped while the library was busy, a
  // count that depends on the machine's load; in lockstep none is dropped.
  @Test
  void motionThenAbsenceLandOnHdsReplaysFramesAndResultsEqualTheFacade() throws IOException {
    int firstMotion = -1;
    int firstAbsence = -1;
    try (PresenceDetector d = DetectorLifecycleTest.openQuietly()) {
      State state = null;
      CameraFrame frame = null;
      for (int i = 0; i < replay.size(); ++i) {
        Row row = replay.get(i);
        if (row.state != state) {
          state = row.state;
          d.setState(state, 10, row.timestamp, "RealFramesTest");
        }
        if (i < pngs.length) {
          frame = cameraFrame(pngs[i]);  // past the video: its last frame, held still
        }
        DetectionResult r = frame.detectWith(d, row.timestamp, 10_000_000);
        assertEqualsFacade(r, NativeHooks.facade(d), i);
        assertTrue(NativeHooks.waitForIdle(d), "the library's thread is stuck at frame " + i);
        if (firstMotion < 0 && r.getStatus() == Status.MOTION) {
          firstMotion = i;
        }
        if (firstAbsence < 0 && r.getStatus() == Status.ABSENCE) {
          firstAbsence = i;
        }
      }
    }
    int replayMotion = firstRowWith(Status.MOTION.code);
    int replayAbsence = firstRowWith(Status.ABSENCE.code);
    assertTrue(replayMotion >= 0 && replayAbsence > replayMotion, "hds-replay's run shows no"
        + " motion and then absence: motion " + replayMotion + ", absence " + replayAbsence);
    System.out.printf("first motion at frame %d (hds-replay %d), first absence at frame %d"
        + " (hds-replay %d), %d frames%n", firstMotion, replayMotion, firstAbsence, replayAbsence,
        replay.size());
    assertTrue(firstMotion - replayMotion == 0 || firstMotion - replayMotion == 1,
        "first motion at frame " + firstMotion + ", hds-replay " + replayMotion);
    assertTrue(firstAbsence - replayAbsence == 0 || firstAbsence - replayAbsence == 1,
        "first absence at frame " + firstAbsence + ", hds-replay " + replayAbsence);
  }

  private static void assertEqualsFacade(DetectionResult r, long[] f, int frame) {
    String at = "frame " + frame;
    assertEquals(f[NativeHooks.STATUS], r.getStatus().code, at);
    assertEquals(f[NativeHooks.CONFIDENCE], Float.floatToRawIntBits(r.getConfidence()), at);
    assertEquals(f[NativeHooks.OUTPUT_FRAME_TIMESTAMP], r.getDecisionTimestamp(), at);
    assertEquals(f[NativeHooks.OUTPUT_WALL_CLOCK], r.getDecisionWallClockSeconds(), at);
    assertEquals(f[NativeHooks.OUTPUT_FRAME_TIMESTAMP] >= f[NativeHooks.STATE_CHANGE_TIMESTAMP],
        r.isFresh(), at);
    assertEquals(f[NativeHooks.MOTION_DETECTED] != 0, r.isMotionDetected(), at);
    assertEquals(f[NativeHooks.MOTION_SCORE], Float.floatToRawIntBits(r.getMotionScore()), at);
    assertEquals(f[NativeHooks.MOTION_FRAME_TIMESTAMP], r.getMotionFrameTimestamp(), at);
    assertEquals(f[NativeHooks.MOTION_WALL_CLOCK], r.getMotionWallClockSeconds(), at);
    assertEquals(f[NativeHooks.DETECT_TIME_MS], Float.floatToRawIntBits(r.getDetectTimeMillis()), at);
  }

  private static int firstRowWith(int status) {
    for (int i = 0; i < replay.size(); ++i) {
      if (replay.get(i).status == status) {
        return i;
      }
    }
    return -1;
  }

  // The PNG's pixels, converted as hds-replay converts them, laid out as NV21
  // with Camera2's strides: padded rows, interleaved chroma, planes cut short.
  private static CameraFrame cameraFrame(File png) throws IOException {
    BufferedImage image = ImageIO.read(png);
    BufferedImage bgr =
        new BufferedImage(image.getWidth(), image.getHeight(), BufferedImage.TYPE_3BYTE_BGR);
    bgr.getGraphics().drawImage(image, 0, 0, null);
    byte[] pixels = ((DataBufferByte) bgr.getRaster().getDataBuffer()).getData();
    int w = image.getWidth();
    int h = image.getHeight();
    return new CameraFrame(NativeHooks.bgrToI420(pixels, w, h), w, h, CameraFrame.Layout.NV21, 64,
        CameraFrame.Memory.DIRECT);
  }
}
