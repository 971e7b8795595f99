package org.hdsml;

import java.io.IOException;
import java.lang.ref.WeakReference;
import java.nio.ByteBuffer;
import java.nio.charset.Charset;
import java.util.logging.Level;

/**
 * Decides from a camera's preview frames whether something moves in front of the device, and when
 * nothing has moved for long enough to call the scene empty.
 *
 * <pre>{@code
 * try (PresenceDetector detector = PresenceDetector.open("/path/hdsml.json")) {
 *   detector.setState(State.DETECT_MOTION, 30, nowMs, "start");
 *   // for every YUV_420_888 frame, on the camera thread:
 *   DetectionResult r = detector.detect(y, u, v, width, height, timestampMs, exposureNs, false);
 *   if (r.isFresh() && r.getStatus() == Status.MOTION) { ... }  // fresh: made since setState
 * }
 * }</pre>
 *
 * <p><b>One per process.</b> The library keeps one detector per process: {@link #open} while
 * another is open throws {@link IllegalStateException}. Close it before opening the next, on
 * Android in the lifecycle callback that ends the camera's use ({@code onDestroy}, say). A detector
 * that becomes unreachable without {@link #close()} still holds the library, its thread and its
 * memory until the next {@code open}, which then releases it and logs a warning (logger
 * "org.hdsml") with the place it was opened.
 *
 * <p><b>Threads.</b> {@link #detect detect} belongs on the camera thread (calls from several
 * threads are taken one at a time). {@link #setState setState}, {@link #pause()} and {@link
 * #resume()} may come from any thread, at the same time as {@code detect}; they are taken one at a
 * time among themselves. {@link #close()} may come from any thread: it waits for a {@code detect}
 * or a state call in progress, and every call after it throws {@link IllegalStateException}. Results
 * are immutable and may go to any thread. The library analyses frames on a thread of its own, so
 * {@code detect} returns at once; messages reach a {@link LogListener} on a thread of the
 * binding's, so a slow listener never holds it up.
 *
 * <p><b>Callbacks.</b> The {@link Plane}'s methods are called by {@code detect}, on its thread,
 * and a {@link LogListener} on the binding's thread: calling the detector from either throws
 * {@link IllegalStateException}.
 *
 * <p><b>Timestamps</b> are the host's, in one unit throughout (milliseconds, as the absence threshold
 * is): the frame timestamps of {@code detect} and the timestamps of {@code setState}.
 */
public final class PresenceDetector implements AutoCloseable {
  static {
    NativeLibrary.load();
  }

  private static final Charset UTF_8 = Charset.forName("UTF-8");

  // How long pause() waits for the library to finish a frame it was analysing.
  private static final long PAUSE_TIMEOUT_MS = 2000;

  private static final Object openLock = new Object();
  // The open detector, held weakly: once it is unreachable, the next open()
  // releases its session.
  private static OpenDetector openDetector;  // guarded by openLock

  final NativeSession session;
  // The native side refers to the forwarder only weakly (a global reference
  // would keep this detector alive through its listener): held here, it lives
  // as long as the detector does.
  private final LogForwarder logForwarder;

  // Reused by detect() under the frame lock, so that a frame allocates nothing but its result.
  private final PlaneInput yInput = new PlaneInput("y");
  private final PlaneInput uInput = new PlaneInput("u");
  private final PlaneInput vInput = new PlaneInput("v");
  private final long[] fields = new long[DetectionResult.FIELD_COUNT];

  private PresenceDetector(long handle, LogForwarder logForwarder) {
    this.session = new NativeSession(handle);
    this.logForwarder = logForwarder;
  }

  /** Opens the detector with {@link DetectorOptions#DEFAULT}. */
  public static PresenceDetector open(String configPath) throws IOException {
    return open(configPath, DetectorOptions.DEFAULT);
  }

  /**
   * Reads the JSON configuration at {@code configPath} and starts the detector in {@link
   * State#DETECT_MOTION}; analysis begins with the first {@link #setState} or {@link #resume()}.
   *
   * @throws IOException if the file is missing, unreadable or a directory; the message names it
   * @throws IllegalArgumentException if the configuration is malformed, with the library's message
   *     (the file, and the key or line at fault)
   * @throws IllegalStateException if a detector is already open in this process (one that became
   *     unreachable without {@link #close()} is released instead, with a warning)
   */
  public static PresenceDetector open(String configPath, DetectorOptions options)
      throws IOException {
    if (configPath == null || options == null) {
      throw new NullPointerException(configPath == null ? "configPath" : "options");
    }
    if (configPath.indexOf('\0') >= 0) {
      throw new IllegalArgumentException("configuration path contains a NUL character");
    }
    refuseInsideListener();
    synchronized (openLock) {
      releaseIfLost();
      if (openDetector != null) {
        throw new IllegalStateException("a PresenceDetector is already open in this process, and"
            + " the library keeps only one: close it before opening another");
      }
      LogForwarder forwarder = new LogForwarder(options.getLogListener());
      long handle = nativeOpen(configPath.getBytes(UTF_8), options.isDebug(), forwarder);
      PresenceDetector detector = new PresenceDetector(handle, forwarder);
      openDetector = new OpenDetector(detector);
      return detector;
    }
  }

  // The open detector, weakly, with what releasing it takes once it is gone.
  private static final class OpenDetector extends WeakReference<PresenceDetector> {
    final NativeSession session;
    final Throwable openedAt = new Throwable("the lost PresenceDetector was opened here");

    OpenDetector(PresenceDetector detector) {
      super(detector);
      session = detector.session;
    }
  }

  // A detector dropped without close() keeps the library, which holds one per
  // process: every later open() would fail until the process ends. The weak
  // reference is cleared as soon as the collector finds the detector
  // unreachable. The session's locks wait for a call still running in it, and
  // a detector brought back (by another object's finalizer) finds it closed.
  private static void releaseIfLost() {
    OpenDetector open = openDetector;
    if (open == null || open.get() != null) {
      return;
    }
    openDetector = null;
    if (open.session.release()) {
      LogForwarder.LOGGER.log(Level.WARNING, "a PresenceDetector leaked: it became unreachable"
          + " without close() and still held the library, which is released now. Close every"
          + " detector when done with it (try-with-resources, or the lifecycle callback that"
          + " stops the camera)", open.openedAt);
    }
  }

  /**
   * Hands one YUV 4:2:0 frame to the detector and returns what it holds right after. The frame is
   * shrunk and copied during the call: the planes (and the {@code Image} or {@code ImageProxy} they
   * come from) may be closed as soon as this returns. Analysis happens afterwards on the library's
   * own thread, so the result describes earlier frames.
   *
   * @param y the luma plane
   * @param u the first chroma plane ({@code planes[1]} of a {@code YUV_420_888} image)
   * @param v the second chroma plane ({@code planes[2]})
   * @param width luma width in pixels; the chroma planes are (width + 1) / 2 samples wide
   * @param height luma height in pixels; the chroma planes are (height + 1) / 2 rows high
   * @param timestamp the frame's timestamp, in the unit of the absence threshold (milliseconds)
   * @param exposureTimeNs the exposure time in nanoseconds, as {@code
   *     CaptureResult.SENSOR_EXPOSURE_TIME} reports it; 0 or less when unknown. The library keeps it
   *     in 32 bits: longer exposures than {@link Integer#MAX_VALUE} ns (2.1 s) are passed as that
   *     value, which the library treats like any exposure that long (low light); values below
   *     {@link Integer#MIN_VALUE} as that value (unknown).
   * @param lensMoving true while the lens moves (focus): such frames are not analysed
   * @return what the detector holds; between {@link #pause()} and {@link #resume()}, where the
   *     frame is checked but not handed over, what it held at the pause
   * @throws IllegalArgumentException if a plane is null, its buffer null, not direct or too small
   *     for the geometry, a stride is out of range, or a size is not positive; nothing reaches the
   *     library then
   * @throws IllegalStateException after {@link #close()}, or when a plane's method calls the
   *     detector
   */
  public DetectionResult detect(Plane y, Plane u, Plane v, int width, int height, long timestamp,
      long exposureTimeNs, boolean lensMoving) {
    refuseReentry();
    NativeSession s = session;
    if (s.closed) {
      throw closedError();
    }
    if (width <= 0 || height <= 0) {
      throw new IllegalArgumentException(
          "frame size " + width + "x" + height + ": width and height must be positive");
    }
    int chromaWidth = width / 2 + (width & 1);
    int chromaHeight = height / 2 + (height & 1);
    s.frameLock.lock();
    try {
      if (s.closed) {
        throw closedError();
      }
      yInput.read(y, width, height);
      uInput.read(u, chromaWidth, chromaHeight);
      vInput.read(v, chromaWidth, chromaHeight);
      if (s.paused) {
        nativeRead(s.handle, fields);
      } else {
        nativeDetect(s.handle, yInput.buffer, yInput.position, yInput.pixelStride,
            yInput.rowStride, uInput.buffer, uInput.position, uInput.pixelStride, uInput.rowStride,
            vInput.buffer, vInput.position, vInput.pixelStride, vInput.rowStride, width, height,
            timestamp, exposureForLibrary(exposureTimeNs), lensMoving, fields);
      }
      return new DetectionResult(fields);
    } finally {
      yInput.clear();
      uInput.clear();
      vInput.clear();
      s.frameLock.unlock();
    }
  }

  /**
   * Tells the detector what to look for from now on. {@code timestamp} marks the change: decisions
   * made on older frames are no longer reported (see {@link DetectionResult#isFresh()}).
   *
   * @param frameRate the camera's frame rate, kept for the library's information
   * @param reason free text for the caller's own records; may be null
   */
  public void setState(State state, int frameRate, long timestamp, String reason) {
    if (state == null) {
      throw new NullPointerException("state");
    }
    refuseReentry();
    synchronized (session.controlLock) {
      nativeSetState(openHandle(), state.code, frameRate, timestamp, reason);
    }
  }

  /**
   * Stops analysis and forgets the recent frames, votes and light level. A {@code detect} in
   * progress on another thread finishes first; from then until {@link #resume()}, {@code detect}
   * hands no frame to the library (cameras still deliver a frame or two after Android's {@code
   * onPause}). Returns once the library has finished a frame it was analysing, so nothing is
   * analysed afterwards.
   */
  public void pause() {
    refuseReentry();
    NativeSession s = session;
    synchronized (s.controlLock) {
      long handle = openHandle();
      s.frameLock.lock();
      try {
        s.paused = true;
      } finally {
        s.frameLock.unlock();
      }
      if (!nativePause(handle, PAUSE_TIMEOUT_MS)) {
        LogForwarder.LOGGER.warning("pause(): the library was still analysing a frame after "
            + PAUSE_TIMEOUT_MS + " ms");
      }
    }
  }

  /**
   * Re-enters the last state, and {@code detect} hands frames over again. The absence timer and the
   * detector's warm-up start afresh with the first frame handed over after it: no absence is
   * decided before the absence threshold has passed on those frames. A decision made before the
   * pause stays the reported one until the next (see {@link DetectionResult#getStatus()}).
   */
  public void resume() {
    refuseReentry();
    NativeSession s = session;
    synchronized (s.controlLock) {
      nativeResume(openHandle());
      s.frameLock.lock();
      try {
        s.paused = false;
      } finally {
        s.frameLock.unlock();
      }
    }
  }

  /**
   * Stops the library's thread and frees everything, after any {@code detect} or state call in
   * progress on another thread has returned. Idempotent; another detector may be opened afterwards.
   * Messages already written still reach the {@link LogListener} after it returns.
   */
  @Override
  public void close() {
    refuseReentry();
    session.release();
    synchronized (openLock) {
      if (openDetector != null && openDetector.session == session) {
        openDetector = null;
      }
    }
  }

  /** Whether {@link #close()} has been called. */
  public boolean isClosed() {
    return session.closed;
  }

  /**
   * Waits until every message the library wrote so far has been through the {@link LogListener}.
   * False when {@code timeoutMs} passed first.
   */
  boolean awaitLogDelivery(long timeoutMs) {
    refuseReentry();
    synchronized (session.controlLock) {
      return nativeFlushLog(openHandle(), timeoutMs);
    }
  }

  /** The native session's handle, 0 once closed. */
  long handle() {
    return session.handle;
  }

  // Saturates: an exposure too long for 32 bits is still a long one, not the
  // short or negative one plain truncation would make of it.
  static int exposureForLibrary(long ns) {
    return (int) Math.max(Integer.MIN_VALUE, Math.min(Integer.MAX_VALUE, ns));
  }

  // Called holding the session's control lock.
  private long openHandle() {
    if (session.closed) {
      throw closedError();
    }
    return session.handle;
  }

  private static IllegalStateException closedError() {
    return new IllegalStateException("the PresenceDetector is closed");
  }

  // A Plane's methods run inside detect(), which holds the frame lock: the lock
  // lets the same thread in again, and an inner call would change or free
  // what the outer one is handing over.
  private void refuseReentry() {
    if (session.frameLock.isHeldByCurrentThread()) {
      throw new IllegalStateException("the PresenceDetector was called from inside its own"
          + " detect(), by a Plane's method on the same thread: a Plane must only return its"
          + " buffer and strides");
    }
    refuseInsideListener();
  }

  // The listener's thread delivers the messages in order: a call from it that
  // waits (close() for the library's thread, say) would hold up the rest.
  private static void refuseInsideListener() {
    if (LogForwarder.isDeliveringOnThisThread()) {
      throw new IllegalStateException("a LogListener must not call the PresenceDetector");
    }
  }

  private static native long nativeOpen(byte[] configPath, boolean debug, LogForwarder forwarder)
      throws IOException;

  // Package-private so that the tests can hand it what the Java side never
  // passes: the native side must refuse it, not crash.
  static native void nativeDetect(long handle, ByteBuffer y, int yPosition,
      int yPixelStride, int yRowStride, ByteBuffer u, int uPosition, int uPixelStride,
      int uRowStride, ByteBuffer v, int vPosition, int vPixelStride, int vRowStride, int width,
      int height, long timestamp, int exposureTime, boolean lensMoving, long[] fields);

  private static native void nativeRead(long handle, long[] fields);

  private static native void nativeSetState(long handle, int state, int frameRate, long timestamp,
      String reason);

  private static native boolean nativePause(long handle, long timeoutMs);

  private static native void nativeResume(long handle);

  private static native boolean nativeFlushLog(long handle, long timeoutMs);

  static native void nativeClose(long handle);
}
