package org.hdsml;

import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.List;

/**
 * A YUV 4:2:0 frame as Camera2 hands it over: rows padded, each plane a direct buffer from its
 * first sample to its last (the last row cut short), NV21's and NV12's chroma planes one byte apart
 * in one interleaved block. In page-end memory each block ends at an inaccessible page.
 */
final class CameraFrame {
  enum Layout { NV21, NV12, I420 }

  final int width;
  final int height;
  final Plane y;
  final Plane u;
  final Plane v;
  private final boolean pageEnd;
  private final List<ByteBuffer> blocks = new ArrayList<>();

  /** From planar I420: luma, then U and V of (width + 1) / 2 x (height + 1) / 2 samples. */
  CameraFrame(byte[] i420, int width, int height, Layout layout, int padding, boolean pageEnd) {
    this.width = width;
    this.height = height;
    this.pageEnd = pageEnd;
    int cw = (width + 1) / 2;
    int ch = (height + 1) / 2;
    int planar = layout == Layout.I420 ? 1 : 0;
    int row = (2 - planar) * cw + padding;  // chroma row stride
    int chromaBytes = (ch - 1) * row + (cw - 1) * (2 - planar) + 1;
    ByteBuffer luma = block((height - 1) * (width + padding) + width);
    ByteBuffer first = block(chromaBytes + 1 - planar);
    ByteBuffer second = planar == 1 ? block(chromaBytes) : first;
    int uAt = layout == Layout.NV21 ? 1 : 0;
    int vAt = layout == Layout.NV12 ? 1 : 0;
    for (int r = 0; r < height; ++r) {
      for (int c = 0; c < width; ++c) {
        luma.put(r * (width + padding) + c, i420[r * width + c]);
        if (r < ch && c < cw) {
          first.put(uAt + r * row + c * (2 - planar), i420[width * height + r * cw + c]);
          second.put(vAt + r * row + c * (2 - planar), i420[width * height + (ch + r) * cw + c]);
        }
      }
    }
    y = new BufferPlane(luma, 1, width + padding);
    u = new BufferPlane(slice(first, uAt, chromaBytes), 2 - planar, row);
    v = new BufferPlane(slice(second, vAt, chromaBytes), 2 - planar, row);
  }

  /** A textured scene; with {@code moving}, a 24-pixel square 6 pixels further each frame. */
  static CameraFrame scene(int width, int height, int index, boolean moving, Layout layout,
      int padding, boolean pageEnd) {
    int cw = (width + 1) / 2;
    byte[] f = new byte[width * height + 2 * cw * ((height + 1) / 2)];
    int x0 = (8 + 6 * index) % Math.max(1, width - 24);
    for (int i = 0; i < f.length; ++i) {
      int x = i % width;
      int y = i / width;
      boolean square = moving && x >= x0 && x < x0 + 24 && Math.abs(y - height / 2) < 12;
      int luma = square ? 235 : 70 + (x * 7 + y * 13) % 60;
      f[i] = (byte) (i >= width * height ? 120 + i % 16 : luma);
    }
    return new CameraFrame(f, width, height, layout, padding, pageEnd);
  }

  /** A small moving NV21 frame in ordinary direct buffers. */
  static CameraFrame small(int index) {
    return scene(64, 48, index, true, Layout.NV21, 16, false);
  }

  DetectionResult detectWith(PresenceDetector detector, long timestamp, long exposureNs) {
    return detector.detect(y, u, v, width, height, timestamp, exposureNs, false);
  }

  /** Makes every plane unreadable (page-end memory only): a later read crashes. */
  void revoke() {
    for (ByteBuffer b : blocks) {
      NativeHooks.revoke(b);
    }
  }

  private ByteBuffer block(int size) {
    ByteBuffer b = pageEnd ? NativeHooks.pageEndBuffer(size) : ByteBuffer.allocateDirect(size);
    blocks.add(b);
    return b;
  }

  static ByteBuffer slice(ByteBuffer b, int offset, int length) {
    ByteBuffer d = b.duplicate();
    ((Buffer) d).position(offset);
    ((Buffer) d).limit(offset + length);
    return d.slice();
  }
}
