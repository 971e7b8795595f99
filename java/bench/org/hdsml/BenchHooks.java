package org.hdsml;

import java.nio.ByteBuffer;

/** The benchmark's native helpers (java/bench/native/BenchHooks.cpp), never part of the jar. */
final class BenchHooks {
  static {
    System.load(System.getProperty("org.hdsml.bench.hooks"));
  }

  private BenchHooks() {}

  /** How many frames of the recording to load; before anything else. */
  static native void loadFrames(int count);

  /** How many distinct frames of this size hdsml_bench's frame set holds. */
  static native int frameCount(int width, int height);

  /**
   * Frame {@code i} as one direct buffer; {@code layout} receives the offsets of the y, u and v
   * planes in it, then the pixel and row stride of each.
   */
  static native ByteBuffer frame(int width, int height, int i, int[] layout);

  /**
   * Nanoseconds spent in {@code count} detect() calls from C++ on the detector's facade, each made
   * once the library's thread is idle.
   */
  static native long detectFromCpp(long handle, int width, int height, int first, int count,
      long timestamp);

  /** Waits until the library's thread has analysed every frame handed over. */
  static native boolean waitForIdle(long handle);

  /** Allocations the calling thread has made, or -1 when they are not counted. */
  static native long threadAllocations();

  /** Allocations counted while one block is made: 1 where counting works. */
  static native long countOneAllocation();
}
