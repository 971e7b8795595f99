package org.hdsml;

/** Loads libhdsml_jni.so, the binding's native part, once per class loader. */
final class NativeLibrary {
  /** A system property naming libhdsml_jni.so by its full path, for hosts that keep it apart. */
  static final String PATH_PROPERTY = "org.hdsml.library";

  private static boolean loaded;

  private NativeLibrary() {}

  static synchronized void load() {
    if (loaded) {
      return;
    }
    String path = System.getProperty(PATH_PROPERTY);
    if (path != null) {
      System.load(path);
    } else {
      // libhdsml.so first where it can be found the same way: Android before 6.0
      // does not look for a JNI library's dependencies among the app's own
      // libraries. Elsewhere the dynamic linker finds it by itself.
      try {
        System.loadLibrary("hdsml");
      } catch (UnsatisfiedLinkError notThere) {
        // hdsml_jni names it; the error, if any, comes from there.
      }
      System.loadLibrary("hdsml_jni");
    }
    loaded = true;
  }
}
