package org.hdsml;

import java.nio.ByteBuffer;

/**
 * One plane of a YUV 4:2:0 frame, shaped like {@code android.media.Image.Plane} and CameraX's
 * {@code ImageProxy.PlaneProxy}, so that either maps onto it in one line.
 *
 * <p>The plane's samples start at the buffer's position: sample (x, y) is the byte at {@code
 * position + y * getRowStride() + x * getPixelStride()}. The buffer must be direct, as camera
 * buffers are, and hold every sample up to the last row's last one (the last row may be cut short,
 * as Android cuts it). Each method is called once per {@link PresenceDetector#detect detect}.
 */
public interface Plane {
  /** The plane's bytes, a direct buffer; its position marks the first sample. */
  ByteBuffer getBuffer();

  /** Bytes from one sample to the next in a row: 1, or 2 for interleaved chroma. */
  int getPixelStride();

  /** Bytes from the start of one row to the start of the next. */
  int getRowStride();
}
