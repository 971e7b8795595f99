package org.hdsml;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
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
import java.util.Arrays;
import java.util.List;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.Test;

/**
 * The people walking through data/vtest.avi against hds-replay's report on the same frames (the
 * fixture in JavaTests.cmake): DETECT_MOTION, DETECT_ABSENCE from frame 40, then the last frame
 * held still. Frames go in lockstep, states change where hds-replay changed them, and each result
 * must equal the facade's fields right after the call. Motion, then absence, must show on the
 * frame hds-replay shows them or one later: detect() copies the decision in force, in lockstep the
 * one on the frame before, or on this frame when the library's thread wins the race to it
 * (hds-replay reads the decision again once its frame is analysed). Free-running, every frame
 * dropped while the library was busy would add one more, a count set by the machine's load.
 */
class RealFramesTest {
  @Test
  void motionThenAbsenceLandOnHdsReplaysFramesAndResultsEqualTheFacade() throws IOException {
    Path frames = Paths.get(System.getProperty("org.hdsml.test.frames"));
    Path csv = frames.resolve("replay.csv");
    if (!Files.exists(csv)) {
      String why = csv + " missing: data/vtest.avi was not there for the fixture (scripts/samples)";
      if (ciIsSet()) {
        fail(why);
      }
      Assumptions.assumeTrue(false, why);
    }
    List<String> rows = Files.readAllLines(csv, StandardCharsets.UTF_8);
    List<String> header = Arrays.asList(rows.get(0).split(","));
    File[] pngs = frames.resolve("png").toFile().listFiles();
    Arrays.sort(pngs);

    // Status codes, one digit a frame: 0 motion, 2 absence, 5 nothing yet.
    StringBuilder ours = new StringBuilder();
    StringBuilder replayed = new StringBuilder();
    try (PresenceDetector d = PresenceDetectorTest.openQuietly()) {
      State state = null;
      CameraFrame frame = null;
      for (int i = 1; i < rows.size(); ++i) {
        String[] cells = rows.get(i).split(",", -1);
        long ts = Long.parseLong(cells[header.indexOf("timestamp_ms")]);
        if (State.valueOf(cells[header.indexOf("state")]) != state) {
          state = State.valueOf(cells[header.indexOf("state")]);
          d.setState(state, 10, ts, "RealFramesTest");
        }
        if (i <= pngs.length) {
          frame = cameraFrame(pngs[i - 1]);  // past the video: its last frame, held still
        }
        DetectionResult r = frame.detectWith(d, ts, 10_000_000);
        assertArrayEquals(Arrays.copyOf(NativeHooks.facade(d), 10), fieldsOf(r), "frame " + i);
        assertTrue(NativeHooks.waitForIdle(d.handle()), "stuck at frame " + i);
        ours.append(r.getStatus().code);
        replayed.append(cells[header.indexOf("status")]);
      }
    }
    System.out.println("statuses through the binding: " + ours + "\nhds-replay's: " + replayed);
    assertTrue(replayed.indexOf("0") >= 0 && replayed.indexOf("2") > replayed.indexOf("0"));
    for (String status : new String[] {"0", "2"}) {
      int lag = ours.indexOf(status) - replayed.indexOf(status);
      assertTrue(lag == 0 || lag == 1, "first " + status + ": " + lag + " frames after hds-replay");
    }
  }

  private static long[] fieldsOf(DetectionResult r) {
    return new long[] {r.getStatus().code, Float.floatToRawIntBits(r.getConfidence()),
        r.getDecisionTimestamp(), r.getDecisionWallClockSeconds(), r.isFresh() ? 1 : 0,
        r.isMotionDetected() ? 1 : 0, Float.floatToRawIntBits(r.getMotionScore()),
        r.getMotionFrameTimestamp(), r.getMotionWallClockSeconds(),
        Float.floatToRawIntBits(r.getDetectTimeMillis())};
  }

  // The PNG's pixels, converted as hds-replay converts them, as NV21 with
  // Camera2's strides: padded rows, interleaved chroma, planes cut short.
  private static CameraFrame cameraFrame(File png) throws IOException {
    BufferedImage image = ImageIO.read(png);
    int w = image.getWidth();
    int h = image.getHeight();
    BufferedImage bgr = new BufferedImage(w, h, BufferedImage.TYPE_3BYTE_BGR);
    bgr.getGraphics().drawImage(image, 0, 0, null);
    byte[] pixels = ((DataBufferByte) bgr.getRaster().getDataBuffer()).getData();
    return new CameraFrame(NativeHooks.bgrToI420(pixels, w, h), w, h, CameraFrame.Layout.NV21, 64,
        false);
  }

  /** CI is set as tests/support/SampleVideo.h has it: CI holds anything but "", "0" or "false". */
  private static boolean ciIsSet() {
    String value = System.getenv("CI");
    return value != null && !value.isEmpty() && !value.equals("0") && !value.equals("false");
  }
}
