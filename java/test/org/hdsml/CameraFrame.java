package org.hdsml;

import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.List;

/**
 * A YUV 4:2:0 frame laid out as Camera2 hands it over: rows padded, each plane its own direct
 * buffer starting at the plane's first sample and cut after the last row's last sample, the two
 * chroma planes of NV21 and NV12 one byte apart in one interleaved block.
 */
final class CameraFrame implements AutoCloseable {
  enum Layout { NV21, NV12, I420 }

  /** Where the planes' bytes live. */
  enum Memory {
    /** ByteBuffer.allocateDirect, freed by the garbage collector. */
    DIRECT,
    /** Each block ends where an inaccessible page begins (NativeHooks.pageEndBuffer). */
    PAGE_END
  }

  final int width;
  final int height;
  final Plane y;
  final Plane u;
  final Plane v;
  private final Memory memory;
  private final List<ByteBuffer> blocks = new ArrayList<>();

  /**
   * Lays out {@code i420} (a width x height luma plane, then two (width + 1) / 2 x (height + 1) / 2
   * chroma planes, U then V, all packed) with {@code padding} bytes after every row.
   */
  CameraFrame(byte[] i420, int width, int height, Layout layout, int padding, Memory memory) {
    this.width = width;
    this.height = height;
    this.memory = memory;
    int cw = (width + 1) / 2;
    int ch = (height + 1) / 2;
    int uStart = width * height;
    int vStart = uStart + cw * ch;

    int yRow = width + padding;
    ByteBuffer yBlock = block((height - 1) * yRow + width);
    for (int r = 0; r < height; ++r) {
      put(yBlock, r * yRow, i420, r * width, width);
    }
    y = new BufferPlane(yBlock, 1, yRow);

    if (layout == Layout.I420) {
      int row = cw + padding;
      ByteBuffer uBlock = block((ch - 1) * row + cw);
      ByteBuffer vBlock = block((ch - 1) * row + cw);
      for (int r = 0; r < ch; ++r) {
        put(uBlock, r * row, i420, uStart + r * cw, cw);
        put(vBlock, r * row, i420, vStart + r * cw, cw);
      }
      u = new BufferPlane(uBlock, 1, row);
      v = new BufferPlane(vBlock, 1, row);
    } else {
      int row = 2 * cw + padding;
      int planeBytes = (ch - 1) * row + (cw - 1) * 2 + 1;
      ByteBuffer pairs = block(planeBytes + 1);
      int uOffset = layout == Layout.NV12 ? 0 : 1;
      int vOffset = 1 - uOffset;
      for (int r = 0; r < ch; ++r) {
        for (int c = 0; c < cw; ++c) {
          pairs.put(r * row + 2 * c + uOffset, i420[uStart + r * cw + c]);
          pairs.put(r * row + 2 * c + vOffset, i420[vStart + r * cw + c]);
        }
      }
      u = new BufferPlane(slice(pairs, uOffset, planeBytes), 2, row);
      v = new BufferPlane(slice(pairs, vOffset, planeBytes), 2, row);
    }
  }

  /** Makes every plane inaccessible (PAGE_END memory only): a later read crashes. */
  void revoke() {
    for (ByteBuffer b : blocks) {
      NativeHooks.revoke(b);
    }
  }

  @Override
  public void close() {
    if (memory == Memory.PAGE_END) {
      for (ByteBuffer b : blocks) {
        NativeHooks.release(b);
      }
    }
    blocks.clear();
  }

  DetectionResult detectWith(PresenceDetector detector, long timestamp, long exposureNs) {
    return detector.detect(y, u, v, width, height, timestamp, exposureNs, false);
  }

  private ByteBuffer block(int size) {
    ByteBuffer b = memory == Memory.DIRECT ? ByteBuffer.allocateDirect(size)
                                           : NativeHooks.pageEndBuffer(size);
    blocks.add(b);
    return b;
  }

  private static void put(ByteBuffer to, int at, byte[] from, int start, int length) {
    ByteBuffer d = to.duplicate();
    ((Buffer) d).position(at);
    d.put(from, start, length);
  }

  static ByteBuffer slice(ByteBuffer b, int offset, int length) {
    ByteBuffer d = b.duplicate();
    ((Buffer) d).position(offset);
    ((Buffer) d).limit(offset + length);
    return d.slice();
  }
}
