package org.hdsml;

import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * detect() through the binding against detect() called from C++ on the same facade, the same
 * frames and in the same run, in alternating rounds, each call made once the library's thread is
 * idle; prints per-call medians and their ratio, and
 * the allocations the calling thread makes per call (counted when libhdsml_alloc_preload.so is in
 * LD_PRELOAD).
 *
 * <pre>
 * java -Dorg.hdsml.bench.hooks=.../libhdsml_jni_bench.so -Djava.library.path=build \
 *     -cp hdsml.jar:hdsml-bench.jar org.hdsml.DetectBenchmark --config=FILE
 *     [--rounds=N] [--calls=N] [--warmup=N] [--frames=N] [--check-allocations]
 * </pre>
 *
 * With --check-allocations it exits with status 1 if a call allocated.
 */
public final class DetectBenchmark {
  private static final int WIDTH = 640;
  private static final int HEIGHT = 480;
  private static final long EXPOSURE_NS = 10_000_000L;

  private final Plane[][] frames;

  private DetectBenchmark() {
    frames = new Plane[BenchHooks.frameCount(WIDTH, HEIGHT)][];
    int[] layout = new int[9];
    for (int i = 0; i < frames.length; ++i) {
      ByteBuffer bytes = BenchHooks.frame(WIDTH, HEIGHT, i, layout);
      frames[i] = new Plane[3];
      for (int p = 0; p < 3; ++p) {
        ByteBuffer plane = bytes.duplicate();
        ((Buffer) plane).position(layout[p]);
        plane = plane.slice();
        frames[i][p] = new BufferPlane(plane, layout[3 + 2 * p], layout[4 + 2 * p]);
      }
    }
  }

  // The Java loop, frame for frame what detectFromCpp does: each call once the
  // library's thread is idle, so that every call does the whole intake (back to
  // back, most frames would find both frame records held and be dropped).
  private long detectFromJava(PresenceDetector d, int first, int count, long timestamp) {
    long spent = 0;
    for (int k = 0; k < count; ++k) {
      Plane[] f = frames[(first + k) % frames.length];
      BenchHooks.waitForIdle(d.handle());
      long start = System.nanoTime();
      d.detect(f[0], f[1], f[2], WIDTH, HEIGHT, timestamp + k, EXPOSURE_NS, false);
      spent += System.nanoTime() - start;
    }
    return spent;
  }

  public static void main(String[] args) throws Exception {
    int rounds = 15;
    int calls = 200;
    int warmup = 5000;
    int sourceFrames = 300;
    boolean checkAllocations = false;
    String config = null;
    for (String a : args) {
      if (a.startsWith("--rounds=")) {
        rounds = Integer.parseInt(a.substring(9));
      } else if (a.startsWith("--calls=")) {
        calls = Integer.parseInt(a.substring(8));
      } else if (a.startsWith("--warmup=")) {
        warmup = Integer.parseInt(a.substring(9));
      } else if (a.startsWith("--frames=")) {
        sourceFrames = Integer.parseInt(a.substring(9));
      } else if (a.startsWith("--config=")) {
        config = a.substring(9);
      } else if (a.equals("--check-allocations")) {
        checkAllocations = true;
      } else {
        throw new IllegalArgumentException("unknown argument " + a);
      }
    }
    BenchHooks.loadFrames(sourceFrames);
    DetectBenchmark bench = new DetectBenchmark();
    DetectorOptions quiet = new DetectorOptions.Builder().setLogListener(message -> {}).build();
    double[] java = new double[rounds];
    double[] cpp = new double[rounds];
    double[] ratio = new double[rounds];
    long allocations;
    try (PresenceDetector d = PresenceDetector.open(config, quiet)) {
      d.setState(State.DETECT_MOTION, 30, 0, "bench");
      long ts = 1;
      // Until the JIT has compiled the Java path; C++ gets the same frames.
      bench.detectFromJava(d, 0, warmup, ts);
      BenchHooks.detectFromCpp(d.handle(), WIDTH, HEIGHT, 0, warmup / 10, ts += warmup);
      ts += warmup / 10;
      for (int r = 0; r < rounds; ++r, ts += 2L * calls) {
        // Alternating which goes first, so that a slow spell of a shared
        // machine falls on both sides alike.
        if (r % 2 == 0) {
          java[r] = bench.detectFromJava(d, r, calls, ts) / 1000.0 / calls;
          cpp[r] = BenchHooks.detectFromCpp(d.handle(), WIDTH, HEIGHT, r, calls, ts + calls)
              / 1000.0 / calls;
        } else {
          cpp[r] =
              BenchHooks.detectFromCpp(d.handle(), WIDTH, HEIGHT, r, calls, ts) / 1000.0 / calls;
          java[r] = bench.detectFromJava(d, r, calls, ts + calls) / 1000.0 / calls;
        }
        ratio[r] = java[r] / cpp[r];
      }
      // Counted only where the counter demonstrably counts (the probe also links
      // the native methods, whose first call allocates in the JVM).
      boolean counting = BenchHooks.countOneAllocation() == 1;
      long before = BenchHooks.threadAllocations();
      bench.detectFromJava(d, 0, calls, ts);
      long after = BenchHooks.threadAllocations();
      allocations = counting ? after - before : -1;
    }
    double median = median(ratio);
    System.out.printf("detect() at %dx%d, %d frames, %d rounds of %d calls each way, medians:%n",
        WIDTH, HEIGHT, bench.frames.length, rounds, calls);
    System.out.printf("  through the Java binding   %8.1f us per call%n", median(java));
    System.out.printf("  from C++                   %8.1f us per call%n", median(cpp));
    System.out.printf("  binding / C++              %8.3f (median of the rounds' ratios; target"
        + " <= 1.10: %s)%n", median, median <= 1.10 ? "met" : "missed");
    if (allocations < 0) {
      System.out.println("  allocations per call       not counted (preload"
          + " libhdsml_alloc_preload.so)");
    } else {
      System.out.printf("  allocations per call       %8.2f on the calling thread (%d in %d calls)%n",
          (double) allocations / calls, allocations, calls);
    }
    if (checkAllocations && allocations != 0) {
      System.exit(1);
    }
  }

  private static double median(double[] values) {
    double[] sorted = values.clone();
    Arrays.sort(sorted);
    int n = sorted.length;
    return n % 2 == 1 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
  }
}
