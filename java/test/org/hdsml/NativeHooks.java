package org.hdsml;

import java.nio.ByteBuffer;

/** The tests' native helpers (java/test/native/TestHooks.cpp). */
final class NativeHooks {
  static {
    System.load(System.getProperty("org.hdsml.test.hooks"));
  }

  private NativeHooks() {}

  /** The facade's fields in DetectionResult's getters' order (floats as bits), then detectCount. */
  static long[] facade(PresenceDetector d) {
    long[] fields = new long[11];
    facade(d.handle(), fields);
    return fields;
  }

  private static native void facade(long handle, long[] out);

  /** The timestamp of the frame the library's thread analysed last. */
  static native long lastAnalysed(long handle);

  /** How many frame records are held now: queued, or being analysed. */
  static native int heldRecords(long handle);

  /** How many frames wait in the library's queue now. */
  static native int queuedFrames(long handle);

  /**
   * Locks the frame record the library's thread holds, which then waits at the end of its analysis
   * (as does anyone reading the record's count) until {@link #unlockRecord()}, called on the same
   * thread. False, with nothing locked, when no record is held.
   */
  static native boolean lockHeldRecord(long handle);

  static native void unlockRecord();

  /** Waits (10 s at most) until the library's thread has analysed every frame handed over. */
  static native boolean waitForIdle(long handle);

  /** A direct buffer of {@code size} bytes followed by an inaccessible page. */
  static native ByteBuffer pageEndBuffer(int size);

  /** Makes a {@link #pageEndBuffer} unreadable. */
  static native void revoke(ByteBuffer buffer);

  /** OpenCV's BGR to I420 conversion, as hds-replay makes it. */
  static native byte[] bgrToI420(byte[] bgr, int width, int height);
}
