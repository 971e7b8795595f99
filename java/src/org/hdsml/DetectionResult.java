package org.hdsml;

/**
 * What the detector held right after one {@link PresenceDetector#detect detect} call: the presence
 * decision in force and the filtered motion vote of the last analysed frame. Immutable, so it may be
 * handed to any thread (the UI thread, say).
 *
 * <p>Analysis runs on the library's own thread, so a result describes frames handed over earlier,
 * not necessarily the one just passed: {@link #getMotionFrameTimestamp()} and {@link
 * #getDecisionTimestamp()} say which.
 */
public final class DetectionResult {
  // Slots of the array the native side fills, one value each; floats as their bits.
  static final int STATUS = 0;
  static final int CONFIDENCE = 1;
  static final int DECISION_TIMESTAMP = 2;
  static final int DECISION_WALL_CLOCK = 3;
  static final int FRESH = 4;
  static final int MOTION_DETECTED = 5;
  static final int MOTION_SCORE = 6;
  static final int MOTION_FRAME_TIMESTAMP = 7;
  static final int MOTION_WALL_CLOCK = 8;
  static final int DETECT_TIME = 9;
  static final int FIELD_COUNT = 10;

  private final Status status;
  private final float confidence;
  private final long decisionTimestamp;
  private final long decisionWallClockSeconds;
  private final boolean fresh;
  private final boolean motionDetected;
  private final float motionScore;
  private final long motionFrameTimestamp;
  private final long motionWallClockSeconds;
  private final float detectTimeMillis;

  DetectionResult(long[] f) {
    status = Status.fromCode((int) f[STATUS]);
    confidence = Float.intBitsToFloat((int) f[CONFIDENCE]);
    decisionTimestamp = f[DECISION_TIMESTAMP];
    decisionWallClockSeconds = f[DECISION_WALL_CLOCK];
    fresh = f[FRESH] != 0;
    motionDetected = f[MOTION_DETECTED] != 0;
    motionScore = Float.intBitsToFloat((int) f[MOTION_SCORE]);
    motionFrameTimestamp = f[MOTION_FRAME_TIMESTAMP];
    motionWallClockSeconds = f[MOTION_WALL_CLOCK];
    detectTimeMillis = Float.intBitsToFloat((int) f[DETECT_TIME]);
  }

  /**
   * The presence status reported to the host. A decision made on a frame older than the last
   * {@link PresenceDetector#setState setState} timestamp is not reported: the status then stays
   * what it was, and {@link #isFresh()} is false.
   */
  public Status getStatus() {
    return status;
  }

  /** The score that came with the latest decision: the vote ratio for motion, 1 for absence. */
  public float getConfidence() {
    return confidence;
  }

  /** Timestamp of the frame the latest decision was made on (0 before any decision). */
  public long getDecisionTimestamp() {
    return decisionTimestamp;
  }

  /** Calendar time, in seconds since the epoch, at which the latest decision was made. */
  public long getDecisionWallClockSeconds() {
    return decisionWallClockSeconds;
  }

  /**
   * Whether the latest decision is no older than the last state change, that is, whether {@link
   * #getStatus()} reflects it.
   */
  public boolean isFresh() {
    return fresh;
  }

  /** The filtered motion vote of the last analysed frame: most recent frames moved. */
  public boolean isMotionDetected() {
    return motionDetected;
  }

  /** The share of recent analysed frames that moved, from 0 to 1. */
  public float getMotionScore() {
    return motionScore;
  }

  /** Timestamp of the last analysed frame (0 before the first). */
  public long getMotionFrameTimestamp() {
    return motionFrameTimestamp;
  }

  /** Calendar time, in seconds since the epoch, at which that frame was analysed. */
  public long getMotionWallClockSeconds() {
    return motionWallClockSeconds;
  }

  /**
   * Time the library spent in this call, in milliseconds; 0 while the detector is paused, when the
   * frame does not reach it.
   */
  public float getDetectTimeMillis() {
    return detectTimeMillis;
  }

  @Override
  public String toString() {
    return "DetectionResult{status=" + status + ", confidence=" + confidence
        + ", decisionTimestamp=" + decisionTimestamp + ", fresh=" + fresh + ", motionDetected="
        + motionDetected + ", motionScore=" + motionScore + ", motionFrameTimestamp="
        + motionFrameTimestamp + ", detectTimeMillis=" + detectTimeMillis + "}";
  }
}
