package org.quendel.oxli.impl;

import java.net.URISyntaxException;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.security.CodeSource;

/** Finds and loads the native library. */
final class NativeLibrary {
  private static final String NAME = "oxli_jni";
  private static final String DIRECTORY_PROPERTY = "oxli.library.path";

  private NativeLibrary() {}

  /**
   * Loads from the directory of the property {@code oxli.library.path} when it is set, and then from
   * nowhere else; otherwise from {@code java.library.path}, and after that from the directory of
   * this library's jar.
   *
   * @throws UnsatisfiedLinkError naming every place tried and what was wrong with it
   */
  static void load() {
    final String directory = System.getProperty(DIRECTORY_PROPERTY);
    final StringBuilder tried = new StringBuilder("cannot load the native library " + NAME + ':');
    final boolean loaded = directory != null
        ? loadFrom(Paths.get(directory), tried)
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
      return loadFrom(Paths.get(source.getLocation().toURI()).getParent(), tried);
    } catch (URISyntaxException | RuntimeException e) {
      // Classes that do not come from the file system have nothing beside them.
      return failed(source.getLocation().toString(), e, tried);
    }
  }

  private static boolean loadFrom(Path directory, StringBuilder tried) {
    final Path file = directory.resolve(System.mapLibraryName(NAME)).toAbsolutePath();
    try {
      System.load(file.toString());
      return true;
    } catch (UnsatisfiedLinkError e) {
      return failed(file.toString(), e, tried);
    }
  }

  private static boolean failed(String place, Throwable reason, StringBuilder tried) {
    tried.append("\n  ").append(place).append(": ").append(reason.getMessage());
    return false;
  }
}
