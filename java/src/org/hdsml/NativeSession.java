package org.hdsml;

import java.util.concurrent.locks.ReentrantLock;

/**
 * What one open {@link PresenceDetector} holds of the library: the native handle, and the locks
 * that order every call into it. It never refers to its detector or to the detector's listener,
 * so that the binding can still release it once the detector has become unreachable without
 * {@link PresenceDetector#close()}.
 */
final class NativeSession {
  // detect() holds frameLock; setState/pause/resume hold controlLock (pause and
  // resume take frameLock too, briefly); release() takes controlLock, then
  // frameLock, so that nothing it destroys is in use.
  final ReentrantLock frameLock = new ReentrantLock();
  final Object controlLock = new Object();
  // Set first thing by release(): later calls fail at once instead of queueing.
  volatile boolean closed;
  // The native session; 0 once released. Written under both locks.
  long handle;
  // From pause() to resume(), detect() hands no frame to the library. Guarded by frameLock.
  boolean paused;

  NativeSession(long handle) {
    this.handle = handle;
  }

  /**
   * Closes the native session after any call in progress has returned. Returns whether this call
   * closed it, false if it was closed already.
   */
  boolean release() {
    synchronized (controlLock) {
      closed = true;
      frameLock.lock();
      try {
        if (handle == 0) {
          return false;
        }
        long h = handle;
        handle = 0;
        PresenceDetector.nativeClose(h);
        return true;
      } finally {
        frameLock.unlock();
      }
    }
  }
}
