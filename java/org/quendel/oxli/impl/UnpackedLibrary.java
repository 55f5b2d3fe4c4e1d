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
 * A native library that is unpacked from a resource into a file, which alone can be loaded.
 *
 * <p>The resources are those of {@code META-INF/native/PLATFORM}, on the class path or the module
 * path, that {@code SHA256SUMS} there lists. Their files are in {@code oxli-UID/VERSION-HASH} of
 * the directory for temporary files; {@code oxli-UID} belongs to the process's user, and nobody else
 * can enter it. Files that have the listed content are used again.
 *
 * <p>Several processes may unpack at once: a file gets its name when it is complete. Each process
 * deletes the files of other versions and of killed processes that are a minute old; a library that
 * is loaded does not need its file.
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

  /** Returns where the library is looked for: the file, or the resources if there is none. */
  String getPlace() {
    return directory == null ? resources : directory.resolve(name).toString();
  }

  /**
   * Unpacks all libraries and loads this one.
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
      // Not a channel: an interrupt of the thread would close it.
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

  /** Deletes what no process needs. Best effort: what remains is deleted by a later process. */
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
      // Anybody may have made it: the check below decides.
    }
    final Map<String, Object> attributes =
        Files.readAttributes(path, "unix:uid,mode", LinkOption.NOFOLLOW_LINKS);
    final int typeAndPermissions = (Integer) attributes.get("mode") & 0_170_777;
    if ((Integer) attributes.get("uid") != user || typeAndPermissions != 0_040_700) {
      throw new IOException(path + " must be a directory of user " + user + " with mode 0700");
    }
  }

  /** The user whom files that the process makes belong to. */
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
      throw new AssertionError(e); // every virtual machine has it
    }
  }
}
