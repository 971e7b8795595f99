package org.hdsml;

/** What the detector is asked to look for; see {@link PresenceDetector#setState}. */
public enum State {
  /** Report motion once most of the recently analysed frames moved. */
  DETECT_MOTION(0),
  /** Someone is known to be present: analyse nothing. */
  DETECT_PRESENCE(1),
  /** Report absence once no motion was seen for longer than the absence threshold. */
  DETECT_ABSENCE(2);

  final int code;  // the library's number for the state

  State(int code) {
    this.code = code;
  }
}
