package org.quendel.oxli.impl;

import java.io.File;
import java.net.URISyntaxException;
import java.security.CodeSource;

/** Finds and loads the native library. For the classes that declare natives. */
public final class NativeLibrary {
  private static final String NAME = "oxli_jni";
  private static final String DIRECTORY_PROPERTY = "oxli.library.path";

  private NativeLibrary() {}

  /**
   * Loads from the directory of the property {@code oxli.library.path} when it is set, and then
   * from nowhere else; otherwise from {@code java.library.path}, and after that from the directory
   * of this library's jar. Harmless when it has been loaded.
   *
   * @throws UnsatisfiedLinkError naming every place tried and what was wrong with it
   */
  public static void load() {
    final String directory = System.getProperty(DIRECTORY_PROPERTY);
    final StringBuilder tried = new StringBuilder("cannot load the native library " + NAME + ':');
    final boolean loaded = directory != null
        ? loadFrom(new File(directory), tried)
        : loadFromLibraryPath(tried) || loadBesideJar(tried);
    if (!loaded) throw new UnsatisfiedLinkError(tried.toString());
  }

  private static boolean loadFromLibraryPath(StringBuilder tried) {
    try {
      System.loadLibrary(NAME);
      return true;
    } catch (UnsatisfiedLinkError e) {
      return failed("java.library.path=" + System.getProperty("java.library.path"), e, tried);
    }
  }

  private static boolean loadBesideJar(StringBuilder tried) {
    final CodeSource source = NativeLibrary.class.getProtectionDomain().getCodeSource();
    if (source == null || source.getLocation() == null) return false;
    try {
      return loadFrom(new File(source.getLocation().toURI()).getParentFile(), tried);
    } catch (URISyntaxException | IllegalArgumentException e) {
      // Classes that do not come from the file system have nothing beside them.
      return failed(source.getLocation().toString(), e, tried);
    }
  }

  private static boolean loadFrom(File directory, StringBuilder tried) {
    final String file = new File(directory, System.mapLibraryName(NAME)).getAbsolutePath();
    try {
      System.load(file);
      return true;
    } catch (UnsatisfiedLinkError e) {
      return failed(file, e, tried);
    }
  }

  private static boolean failed(String place, Throwable reason, StringBuilder tried) {
    tried.append("\n  ").append(place).append(": ").append(reason.getMessage());
    return false;
  }
}
