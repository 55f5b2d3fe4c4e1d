package org.quendel.oxli.impl;

import java.io.File;
import java.io.IOException;
import java.net.URISyntaxException;
import java.security.CodeSource;

/** Finds and loads the native library. */
public final class NativeLibrary {
  private static final String NAME = "oxli_jni";
  private static final String DIRECTORY_PROPERTY = "oxli.library.path";
  private static final String REMEDY = "\nset -D" + DIRECTORY_PROPERTY
      + "=DIRECTORY to the directory that contains " + System.mapLibraryName(NAME)
      + "; liboxli.so is searched for there and in its parent directory";

  // Guarded by the monitor of the class.
  private static boolean isLoaded;
  private static UnsatisfiedLinkError failure; // of the first attempt

  private NativeLibrary() {}

  /**
   * Loads the library if it is not loaded: if the system property {@code oxli.library.path} is set
   * and not empty, from this directory only; otherwise from {@code java.library.path}, then from
   * the directory of this library's jar, then from a jar of native libraries on the class path or
   * module path, which is unpacked.
   *
   * @throws UnsatisfiedLinkError if the library cannot be loaded; the message contains each place
   *     tried, the reason and the remedy. Later calls throw an error with the same message without
   *     another attempt.
   */
  public static synchronized void load() {
    if (isLoaded) return;
    if (failure != null) {
      throw error(failure.getMessage(), failure);
    }
    try {
      findAndLoad();
      isLoaded = true;
    } catch (UnsatisfiedLinkError e) {
      failure = e;
      throw e;
    }
  }

  private static void findAndLoad() {
    final String directory = System.getProperty(DIRECTORY_PROPERTY, "");
    final StringBuilder tried = new StringBuilder("cannot load the native library " + NAME + ':');
    try {
      final boolean loaded = directory.isEmpty()
          ? loadFromLibraryPath(tried) || loadBesideJar(tried) || loadUnpacked(tried)
          : loadFrom(new File(directory), tried);
      if (!loaded) throw new UnsatisfiedLinkError(tried + REMEDY);
    } catch (IllegalCallerException e) {
      final Module module = NativeLibrary.class.getModule();
      throw error("cannot load the native library " + NAME
          + ": the virtual machine denies native access; start it with --enable-native-access="
          + (module.isNamed() ? module.getName() : "ALL-UNNAMED"), e);
    }
  }

  private static UnsatisfiedLinkError error(String message, Throwable cause) {
    return (UnsatisfiedLinkError) new UnsatisfiedLinkError(message).initCause(cause);
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
      // Classes that were not loaded from the file system have no directory.
      return failed(source.getLocation().toString(), e, tried);
    }
  }

  private static boolean loadUnpacked(StringBuilder tried) {
    final UnpackedLibrary library = new UnpackedLibrary(System.mapLibraryName(NAME));
    try {
      library.load();
      return true;
    } catch (IOException | UnsatisfiedLinkError e) {
      return failed(library.getPlace(), e, tried);
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
    // The message of an IOException may consist of a file name only.
    final String message = reason instanceof IOException ? reason.toString() : reason.getMessage();
    tried.append("\n  ").append(place).append(": ").append(message);
    if (String.valueOf(message).contains("failed to map segment")) {
      tried.append("; its directory does not allow execution, as when it is mounted noexec");
    }
    return false;
  }
}
