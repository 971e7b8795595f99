package org.hdsml;

/** Synthetic I420 frames: a fixed texture, optionally with a bright square moving right. */
final class Scenes {
  private Scenes() {}

  /** Frame {@code index}; with {@code moving} a 24-pixel square moves 6 pixels a frame. */
  static byte[] i420(int width, int height, int index, boolean moving) {
    int cw = (width + 1) / 2;
    int ch = (height + 1) / 2;
    byte[] f = new byte[width * height + 2 * cw * ch];
    int x0 = (8 + 6 * index) % Math.max(1, width - 24);
    int y0 = (height - 24) / 2;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        boolean square = moving && x >= x0 && x < x0 + 24 && y >= y0 && y < y0 + 24;
        f[y * width + x] = (byte) (square ? 235 : 70 + (x * 7 + y * 13) % 60);
      }
    }
    for (int i = width * height; i < f.length; ++i) {
      f[i] = (byte) (120 + i % 16);
    }
    return f;
  }
}
