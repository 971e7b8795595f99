package org.hdsml;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.Charset;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Decides from a camera's preview frames whether something moves in front of the device, and when
 * nothing has moved for long enough to call the scene empty.
 *
 * <pre>{@code
 * try (PresenceDetector detector = PresenceDetector.open("/path/hdsml.json")) {
 *   detector.setState(State.DETECT_MOTION, 30, nowMs, "start");
 *   // for every YUV_420_888 frame, on the camera thread:
 *   DetectionResult r = detector.detect(y, u, v, width, height, timestampMs, exposureNs, false);
 *   if (r.getStatus() == Status.MOTION) { ... }
 * }
 * }</pre>
 *
 * <p><b>One per process.</b> The library keeps one detector per process: {@link #open} while
 * another is open throws {@link IllegalStateException}. Close it before opening the next.
 *
 * <p><b>Threads.</b> {@link #detect detect} belongs on the camera thread (calls from several
 * threads are taken one at a time). {@link #setState setState}, {@link #pause()} and {@link
 * #resume()} may come from any thread, at the same time as {@code detect}; they are taken one at a
 * time among themselves. {@link #close()} may come from any thread: it waits for a {@code detect}
 * or a state call in progress, and every call after it throws {@link IllegalStateException}. Results
 * are immutable and may go to any thread. The library analyses frames on a thread of its own, so
 * {@code detect} returns at once; a {@link LogListener} may be called from that thread.
 *
 * <p><b>Timestamps</b> are the host's, in one unit throughout (milliseconds, as the absence threshold
 * is): the frame timestamps of {@code detect} and the timestamps of {@code setState}.
 */
public final class PresenceDetector implements AutoCloseable {
  static {
    NativeLibrary.load();
  }

  private static final Charset UTF_8 = Charset.forName("UTF-8");

  private static final Object openLock = new Object();
  private static PresenceDetector openDetector;  // guarded by openLock

  // detect() holds frameLock; setState/pause/resume hold controlLock; close()
  // takes controlLock, then frameLock, so that nothing it destroys is in use.
  private final ReentrantLock frameLock = new ReentrantLock();
  private final Object controlLock = new Object();
  // Set first thing by close(): later calls fail at once instead of queueing.
  private volatile boolean closed;
  // The native session; 0 once closed. Written under both locks.
  long handle;

  // Reused by detect() under frameLock, so that a frame allocates nothing but its result.
  private final PlaneInput yInput = new PlaneInput("y");
  private final PlaneInput uInput = new PlaneInput("u");
  private final PlaneInput vInput = new PlaneInput("v");
  private final long[] fields = new long[DetectionResult.FIELD_COUNT];

  private PresenceDetector(long handle) {
    this.handle = handle;
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
   * @throws IllegalStateException if a detector is already open in this process
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
      if (openDetector != null) {
        throw new IllegalStateException("a PresenceDetector is already open in this process, and"
            + " the library keeps only one: close it before opening another");
      }
      long handle = nativeOpen(configPath.getBytes(UTF_8), options.isDebug(),
          new LogForwarder(options.getLogListener()));
      openDetector = new PresenceDetector(handle);
      return openDetector;
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
   * @throws IllegalArgumentException if a plane is null, its buffer null, not direct or too small
   *     for the geometry, a stride is out of range, or a size is not positive; nothing reaches the
   *     library then
   * @throws IllegalStateException after {@link #close()}
   */
  public DetectionResult detect(Plane y, Plane u, Plane v, int width, int height, long timestamp,
      long exposureTimeNs, boolean lensMoving) {
    refuseInsideListener();
    if (closed) {
      throw closedError();
    }
    if (width <= 0 || height <= 0) {
      throw new IllegalArgumentException(
          "frame size " + width + "x" + height + ": width and height must be positive");
    }
    int chromaWidth = width / 2 + (width & 1);
    int chromaHeight = height / 2 + (height & 1);
    frameLock.lock();
    try {
      if (closed) {
        throw closedError();
      }
      yInput.read(y, width, height);
      uInput.read(u, chromaWidth, chromaHeight);
      vInput.read(v, chromaWidth, chromaHeight);
      nativeDetect(handle, yInput.buffer, yInput.position, yInput.pixelStride, yInput.rowStride,
          uInput.buffer, uInput.position, uInput.pixelStride, uInput.rowStride, vInput.buffer,
          vInput.position, vInput.pixelStride, vInput.rowStride, width, height, timestamp,
          exposureForLibrary(exposureTimeNs), lensMoving, fields);
      return new DetectionResult(fields);
    } finally {
      yInput.clear();
      uInput.clear();
      vInput.clear();
      frameLock.unlock();
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
    refuseInsideListener();
    synchronized (controlLock) {
      nativeSetState(openHandle(), state.code, frameRate, timestamp, reason);
    }
  }

  /** Stops analysis and forgets the recent frames, votes and light level. */
  public void pause() {
    refuseInsideListener();
    synchronized (controlLock) {
      nativePause(openHandle());
    }
  }

  /** Re-enters the last state; the absence timer and the detector's warm-up start afresh. */
  public void resume() {
    refuseInsideListener();
    synchronized (controlLock) {
      nativeResume(openHandle());
    }
  }

  /**
   * Stops the library's thread and frees everything, after any {@code detect} or state call in
   * progress on another thread has returned. Idempotent; another detector may be opened afterwards.
   */
  @Override
  public void close() {
    refuseInsideListener();
    synchronized (controlLock) {
      closed = true;
      frameLock.lock();
      try {
        if (handle != 0) {
          long h = handle;
          handle = 0;
          nativeClose(h);
        }
      } finally {
        frameLock.unlock();
        synchronized (openLock) {
          if (openDetector == this) {
            openDetector = null;
          }
        }
      }
    }
  }

  /** Whether {@link #close()} has been called. */
  public boolean isClosed() {
    return closed;
  }

  // Saturates: an exposure too long for 32 bits is still a long one, not the
  // short or negative one plain truncation would make of it.
  static int exposureForLibrary(long ns) {
    return (int) Math.max(Integer.MIN_VALUE, Math.min(Integer.MAX_VALUE, ns));
  }

  private long openHandle() {
    if (closed) {
      throw closedError();
    }
    return handle;
  }

  private static IllegalStateException closedError() {
    return new IllegalStateException("the PresenceDetector is closed");
  }

  // A listener runs while the library may hold its locks: calling back in
  // would deadlock.
  private static void refuseInsideListener() {
    if (LogForwarder.isDeliveringOnThisThread()) {
      throw new IllegalStateException("a LogListener must not call the PresenceDetector");
    }
  }

  private static native long nativeOpen(byte[] configPath, boolean debug, LogForwarder forwarder)
      throws IOException;

  private static native void nativeDetect(long handle, ByteBuffer y, int yPosition,
      int yPixelStride, int yRowStride, ByteBuffer u, int uPosition, int uPixelStride,
      int uRowStride, ByteBuffer v, int vPosition, int vPixelStride, int vRowStride, int width,
      int height, long timestamp, int exposureTime, boolean lensMoving, long[] fields);

  private static native void nativeSetState(long handle, int state, int frameRate, long timestamp,
      String reason);

  private static native void nativePause(long handle);

  private static native void nativeResume(long handle);

  private static native void nativeClose(long handle);
}
