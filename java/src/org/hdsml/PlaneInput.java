package org.hdsml;

import java.nio.ByteBuffer;

/**
 * One plane of the frame being handed over, read once from the caller's {@link Plane} and checked
 * against the plane's size, so that the values checked are the values the library gets. Reused
 * from frame to frame by its detector, under the detector's frame lock.
 */
final class PlaneInput {
  private final String name;
  ByteBuffer buffer;
  int position;
  int pixelStride;
  int rowStride;

  PlaneInput(String name) {
    this.name = name;
  }

  /**
   * Reads {@code plane} and checks that its buffer holds every sample of a {@code width} x {@code
   * height} plane: direct, a pixel stride of 1 or 2, rows at least {@code (width - 1) * pixelStride
   * + 1} bytes apart, and that many bytes in the last row, which Android cuts short.
   */
  void read(Plane plane, int width, int height) {
    if (plane == null) {
      throw invalid("is null");
    }
    ByteBuffer b = plane.getBuffer();
    int pixel = plane.getPixelStride();
    int row = plane.getRowStride();
    if (b == null) {
      throw invalid("getBuffer() returned null");
    }
    if (!b.isDirect()) {
      throw invalid("its buffer is not direct: a heap buffer has no address the library could"
          + " read (use the camera's buffer or ByteBuffer.allocateDirect)");
    }
    if (pixel != 1 && pixel != 2) {
      throw invalid("pixel stride " + pixel + ", must be 1 or 2");
    }
    long rowBytes = (long) (width - 1) * pixel + 1;
    if (row < rowBytes) {
      throw invalid("row stride " + row + " is shorter than a row of " + width
          + " samples at pixel stride " + pixel + " (" + rowBytes + " bytes)");
    }
    int start = b.position();
    long available = b.limit() - start;
    long needed = (long) (height - 1) * row + rowBytes;
    if (available < needed) {
      throw invalid(available + " bytes from position " + start + ", but a " + width + "x" + height
          + " plane with pixel stride " + pixel + " and row stride " + row + " needs " + needed);
    }
    buffer = b;
    position = start;
    pixelStride = pixel;
    rowStride = row;
  }

  /** Drops the reference to the caller's buffer once the library is done with it. */
  void clear() {
    buffer = null;
  }

  private IllegalArgumentException invalid(String what) {
    return new IllegalArgumentException("plane " + name + ": " + what);
  }
}
