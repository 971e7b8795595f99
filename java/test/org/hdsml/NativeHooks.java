package org.hdsml;

import java.nio.ByteBuffer;

/** The tests' native helpers (java/test/native/TestHooks.cpp), never part of the jar. */
final class NativeHooks {
  static {
    System.load(System.getProperty("org.hdsml.test.hooks"));
  }

  // Slots of facadeFields(), in the facade's declaration order.
  static final int STATE = 0;
  static final int STATUS = 1;
  static final int DETECT_TIME_MS = 2;
  static final int CONFIDENCE = 3;
  static final int DETECT_COUNT = 4;
  static final int OUTPUT_FRAME_TIMESTAMP = 5;
  static final int OUTPUT_WALL_CLOCK = 6;
  static final int STATE_CHANGE_TIMESTAMP = 7;
  static final int FRAME_RESULT = 8;
  static final int MOTION_DETECTED = 9;
  static final int MOTION_SCORE = 10;
  static final int MOTION_FRAME_TIMESTAMP = 11;
  static final int MOTION_WALL_CLOCK = 12;
  static final int FACADE_FIELDS = 13;

  private NativeHooks() {}

  /** The facade's fields as C++ holds them now; floats as their bits. */
  static long[] facade(PresenceDetector detector) {
    long[] fields = new long[FACADE_FIELDS];
    facadeFields(detector.handle, fields);
    return fields;
  }

  /** Waits until the library's thread has analysed every frame handed over. */
  static boolean waitForIdle(PresenceDetector detector) {
    return waitForIdle(detector.handle, 10_000);
  }

  /** The timestamp of the frame the library's thread analysed last. */
  static long lastAnalysed(PresenceDetector detector) {
    return lastAnalysed(detector.handle);
  }

  private static native void facadeFields(long handle, long[] out);

  private static native long lastAnalysed(long handle);

  private static native boolean waitForIdle(long handle, long timeoutMillis);

  /** A direct buffer of {@code size} bytes followed by an inaccessible page. */
  static native ByteBuffer pageEndBuffer(int size);

  /** Makes a {@link #pageEndBuffer} inaccessible. */
  static native void revoke(ByteBuffer buffer);

  /** Unmaps a {@link #pageEndBuffer}. */
  static native void release(ByteBuffer buffer);

  /** OpenCV's BGR to planar I420 conversion, as hds-replay makes it. */
  static native byte[] bgrToI420(byte[] bgr, int width, int height);
}
