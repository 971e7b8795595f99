package org.hdsml;

/** Options for {@link PresenceDetector#open(String, DetectorOptions)}. Immutable. */
public final class DetectorOptions {
  /** No debug lines; messages go to {@code java.util.logging}. */
  public static final DetectorOptions DEFAULT = new Builder().build();

  private final boolean debug;
  private final LogListener logListener;

  private DetectorOptions(Builder b) {
    debug = b.debug;
    logListener = b.logListener;
  }

  /** Whether the library also writes a line per analysed frame and per motion region. */
  public boolean isDebug() {
    return debug;
  }

  /** Where messages go, or null for the {@code java.util.logging} logger "org.hdsml". */
  public LogListener getLogListener() {
    return logListener;
  }

  /** Builds {@link DetectorOptions}. Not thread-safe. */
  public static final class Builder {
    private boolean debug;
    private LogListener logListener;

    public Builder setDebug(boolean debug) {
      this.debug = debug;
      return this;
    }

    /**
     * Messages go to {@code listener}, on the binding's own thread and in order (see {@link
     * LogListener}); null sends them to {@code java.util.logging}.
     */
    public Builder setLogListener(LogListener listener) {
      this.logListener = listener;
      return this;
    }

    public DetectorOptions build() {
      return new DetectorOptions(this);
    }
  }
}
