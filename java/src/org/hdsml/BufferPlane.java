package org.hdsml;

import java.nio.ByteBuffer;

/** A {@link Plane} over a buffer the caller already has, with its two strides. Immutable. */
public final class BufferPlane implements Plane {
  private final ByteBuffer buffer;
  private final int pixelStride;
  private final int rowStride;

  public BufferPlane(ByteBuffer buffer, int pixelStride, int rowStride) {
    this.buffer = buffer;
    this.pixelStride = pixelStride;
    this.rowStride = rowStride;
  }

  @Override
  public ByteBuffer getBuffer() {
    return buffer;
  }

  @Override
  public int getPixelStride() {
    return pixelStride;
  }

  @Override
  public int getRowStride() {
    return rowStride;
  }
}
