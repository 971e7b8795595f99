// A Java camera application in miniature, compiled and run by scripts/check-install
// against the installed libhdsml-java and libhdsml-jni packages: the consumer.cpp
// scene (a bright square moving across a grey picture, then standing still) fed
// through org.hdsml.PresenceDetector as NV21 planes in direct buffers. It requires
// motion while the square moves, then, in DETECT_ABSENCE, absence once the scene
// has been still for longer than the absence threshold; exits 1 otherwise.
//   java -cp /usr/share/java/hdsml.jar:. Consumer CONFIG
import java.nio.ByteBuffer;
import org.hdsml.BufferPlane;
import org.hdsml.DetectionResult;
import org.hdsml.PresenceDetector;
import org.hdsml.State;
import org.hdsml.Status;

public final class Consumer {
  private static final int WIDTH = 320;
  private static final int HEIGHT = 240;
  private static final int SQUARE = 48;
  private static final long FRAME_MS = 100;  // timestamps of a 10 fps camera
  private static final int FRAME_BUDGET = 200;  // per phase; each needs well under 100

  private final PresenceDetector detector;
  private final ByteBuffer y = ByteBuffer.allocateDirect(WIDTH * HEIGHT);
  private final ByteBuffer vu = ByteBuffer.allocateDirect(WIDTH * HEIGHT / 2);
  private int frame;

  private Consumer(PresenceDetector detector) {
    this.detector = detector;
    for (int i = 0; i < vu.capacity(); ++i) {
      vu.put(i, (byte) 128);
    }
  }

  private long timestamp() {
    return frame * FRAME_MS;
  }

  // One frame with the square's left edge at x; NV21, so the first chroma plane
  // (U) starts one byte into the interleaved VU plane.
  private DetectionResult shoot(int x) throws InterruptedException {
    for (int r = 0; r < HEIGHT; ++r) {
      for (int c = 0; c < WIDTH; ++c) {
        boolean inside = c >= x && c < x + SQUARE && r >= 96 && r < 96 + SQUARE;
        y.put(r * WIDTH + c, (byte) (inside ? 230 : 90));
      }
    }
    ByteBuffer u = vu.duplicate();
    u.position(1);
    DetectionResult result = detector.detect(new BufferPlane(y, 1, WIDTH),
        new BufferPlane(u, 2, WIDTH), new BufferPlane(vu.duplicate(), 2, WIDTH), WIDTH, HEIGHT,
        timestamp(), 10_000_000L, false);
    ++frame;
    Thread.sleep(20);  // the library analyses a frame like this in well under a millisecond
    return result;
  }

  public static void main(String[] args) throws Exception {
    if (args.length != 1) {
      System.err.println("usage: Consumer CONFIG");
      System.exit(2);
    }
    boolean passed;
    try (PresenceDetector detector = PresenceDetector.open(args[0])) {
      Consumer camera = new Consumer(detector);
      detector.setState(State.DETECT_MOTION, 10, camera.timestamp(), "consumer");
      DetectionResult last = null;
      int x = 0;
      int step = 12;
      while ((last == null || last.getStatus() != Status.MOTION) && camera.frame < FRAME_BUDGET) {
        last = camera.shoot(x);
        if (x + step < 0 || x + step + SQUARE > WIDTH) {
          step = -step;
        }
        x += step;
      }
      boolean motion = last.getStatus() == Status.MOTION;
      System.out.printf("consumer (Java): motion %s after %d frames (score %.2f)%n",
          motion ? "reported" : "NOT reported", camera.frame, last.getMotionScore());

      int stillFrom = camera.frame;
      detector.setState(State.DETECT_ABSENCE, 10, camera.timestamp(), "consumer");
      while (last.getStatus() != Status.ABSENCE && camera.frame < stillFrom + FRAME_BUDGET) {
        last = camera.shoot(x);
      }
      boolean absence = last.getStatus() == Status.ABSENCE;
      System.out.printf("consumer (Java): absence %s %d frames after the square stopped%n",
          absence ? "reported" : "NOT reported", camera.frame - stillFrom);
      passed = motion && absence;
    }
    System.exit(passed ? 0 : 1);
  }
}
