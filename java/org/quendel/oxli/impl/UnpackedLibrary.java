package org.quendel.oxli.impl;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.attribute.PosixFilePermissions;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * Unpacks a native library from a resource into a file and loads it: the virtual machine loads
 * libraries from files only.
 *
 * <p>The resources are in {@code META-INF/native/PLATFORM}, on the class path or the module path.
 * {@code SHA256SUMS} in the same place lists them. Their files are written to {@code
 * oxli-UID/VERSION-HASH} in the directory for temporary files. {@code oxli-UID} belongs to the user
 * of the process, and no other user can enter it. Existing files with the listed content are used.
 *
 * <p>Several processes may unpack at once: a file is renamed to its final name when it is complete.
 * Each process deletes files of other versions and incomplete files of killed processes if they are
 * older than one minute. A library that is loaded does not need its file.
 */
final class UnpackedLibrary {
  private static final long STALE_AFTER_MILLIS = 60_000;
  private static final int ATTEMPTS = 3;

  private final String name;
  private final String resources;
  private final Map<String, String> sums = new LinkedHashMap<>(); // by file name
  private Path directory;

  UnpackedLibrary(String name) {
    this.name = name;
    final String architecture = System.getProperty("os.arch");
    resources = "META-INF/native/linux-" + (architecture.equals("amd64") ? "x86_64" : architecture);
  }

  /**
   * Returns the place of the library: the path of its file, or of the resources before unpacking.
   */
  String getPlace() {
    return directory == null ? resources : directory.resolve(name).toString();
  }

  /**
   * Unpacks all libraries and loads the one with the name.
   *
   * @throws IOException if unpacking fails
   * @throws UnsatisfiedLinkError if loading fails
   */
  void load() throws IOException {
    final byte[] list = read("SHA256SUMS");
    for (String line : new String(list, StandardCharsets.UTF_8).split("\n")) {
      final String[] sumAndName = line.split("  ", 2);
      if (sumAndName.length != 2) throw new IOException("invalid line in SHA256SUMS: " + line);
      sums.put(sumAndName[1], sumAndName[0]);
    }
    final int user = effectiveUser();
    final Path userDirectory =
        Path.of(System.getProperty("java.io.tmpdir"), "oxli-" + user).toAbsolutePath();
    directory = userDirectory.resolve(Version.VERSION + '-' + sumOf(list).substring(0, 16));
    makePrivate(userDirectory, user);
    unpackAndLoad();
    deleteStale(directory);
    deleteStale(userDirectory);
  }

  private void unpackAndLoad() throws IOException {
    for (int attempt = 1; ; ++attempt) {
      try {
        for (Map.Entry<String, String> file : sums.entrySet()) {
          unpack(file.getKey(), file.getValue());
        }
        System.load(getPlace());
        return;
      } catch (IOException | UnsatisfiedLinkError e) {
        // A process of another version may have deleted the files after they were found.
        if (attempt == ATTEMPTS || isComplete()) throw e;
      }
    }
  }

  private void unpack(String file, String sum) throws IOException {
    final Path path = directory.resolve(file);
    if (Files.exists(path) && sumOf(Files.readAllBytes(path)).equals(sum)) return;
    Files.createDirectories(directory);
    final Path incomplete = Files.createTempFile(directory, file, null);
    try {
      // A stream, because an interrupt of the thread would close a channel.
      try (FileOutputStream out = new FileOutputStream(incomplete.toFile())) {
        out.write(read(file));
      }
      Files.move(incomplete, path, StandardCopyOption.ATOMIC_MOVE);
    } catch (IOException e) {
      Files.deleteIfExists(incomplete);
      throw e;
    }
  }

  private boolean isComplete() {
    return sums.keySet().stream().allMatch(file -> Files.exists(directory.resolve(file)));
  }

  private byte[] read(String file) throws IOException {
    final ClassLoader loader = UnpackedLibrary.class.getClassLoader();
    final String resource = resources + '/' + file;
    try (InputStream in = loader == null ? ClassLoader.getSystemResourceAsStream(resource)
        : loader.getResourceAsStream(resource)) {
      if (in == null) throw new IOException("not on the class path or module path");
      return in.readAllBytes();
    }
  }

  /**
   * Deletes the files and directories that no process needs. Best effort: a later process deletes
   * those that remain.
   */
  private void deleteStale(Path parent) {
    final File[] children = parent.toFile().listFiles();
    if (children == null) return;
    for (File child : children) {
      final boolean needed = child.toPath().equals(directory) || sums.containsKey(child.getName());
      final long age = System.currentTimeMillis() - child.lastModified();
      if (needed || age < STALE_AFTER_MILLIS) continue;
      final File[] files = child.listFiles();
      if (files != null && !Files.isSymbolicLink(child.toPath())) {
        for (File file : files) file.delete();
      }
      child.delete();
    }
  }

  private static void makePrivate(Path path, int user) throws IOException {
    try {
      Files.createDirectory(path,
          PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------")));
    } catch (FileAlreadyExistsException e) {
      // Another user may have made the directory: its owner and mode are checked below.
    }
    final Map<String, Object> attributes =
        Files.readAttributes(path, "unix:uid,mode", LinkOption.NOFOLLOW_LINKS);
    final int typeAndPermissions = (Integer) attributes.get("mode") & 0_170_777;
    if ((Integer) attributes.get("uid") != user || typeAndPermissions != 0_040_700) {
      throw new IOException(path + " must be a directory of user " + user + " with mode 0700");
    }
  }

  /** Returns the id of the effective user, who owns the files that the process makes. */
  private static int effectiveUser() throws IOException {
    for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
      if (line.startsWith("Uid:")) return Integer.parseUnsignedInt(line.split("\\s+")[2]);
    }
    throw new IOException("/proc/self/status names no user");
  }

  private static String sumOf(byte[] content) {
    try {
      final StringBuilder sum = new StringBuilder();
      for (byte each : MessageDigest.getInstance("SHA-256").digest(content)) {
        sum.append(Character.forDigit(each >> 4 & 15, 16));
        sum.append(Character.forDigit(each & 15, 16));
      }
      return sum.toString();
    } catch (NoSuchAlgorithmException e) {
      throw new AssertionError(e); // every Java platform has SHA-256
    }
  }
}
