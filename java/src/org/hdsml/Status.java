package org.hdsml;

/** The presence status a {@link DetectionResult} reports. */
public enum Status {
  /** Motion was seen (reported in {@link State#DETECT_MOTION}). */
  MOTION(0),
  /** Nothing moved for longer than the absence threshold ({@link State#DETECT_ABSENCE}). */
  ABSENCE(2),
  /** No decision yet. */
  NONE(5);

  final int code;  // the library's number for the status

  Status(int code) {
    this.code = code;
  }

  static Status fromCode(int code) {
    switch (code) {
      case 0:
        return MOTION;
      case 2:
        return ABSENCE;
      case 5:
        return NONE;
      default:
        throw new IllegalStateException("the library reported an unknown status " + code);
    }
  }
}
