package org.quendel.oxli;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collection;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Collects the lines of {@link Environment#dump}. Code that adds lines acquires no lock and calls
 * no native, because it must not wait for a thread that is inside a call. Not thread-safe.
 */
final class Dump {
  /** Maximum number of frames that are shown of a stack trace. */
  static final int MAX_FRAMES = 32;

  private final StringBuilder lines = new StringBuilder();
  private String indent = "";

  /** A number of objects with the same name that were made at the same place. Immutable. */
  static final class Group {
    final Origin oldest;
    private final String name;
    private final int size;

    private Group(String name, Origin oldest, int size) {
      this.name = name;
      this.oldest = oldest;
      this.size = size;
    }

    private Group plus(Group other) {
      return new Group(
          name, other.oldest.isBefore(oldest) ? other.oldest : oldest, size + other.size);
    }

    @Override
    public String toString() {
      return size == 1 ? name + ": " + oldest.age() : size + " x " + name + ": the oldest is "
          + oldest.age();
    }
  }

  /** Groups objects by their name and the place where they were made. Not thread-safe. */
  static final class Groups {
    private final Map<List<Object>, Group> groups = new LinkedHashMap<>();

    void add(String name, Origin origin) {
      groups.merge(List.of(name, origin.frames()), new Group(name, origin, 1), Group::plus);
    }

    /** Returns the groups in the order in which their oldest objects were made. */
    List<Group> inOrder() {
      return Origin.inOrder(groups.values(), group -> group.oldest);
    }
  }

  /** Adds the line of an object and, indented, its origin and what {@code inside} adds. */
  void add(String line, Origin origin, Runnable inside) {
    addLine(line);
    final String outer = indent;
    indent += "  ";
    addFrames("made", origin.frames());
    inside.run();
    indent = outer;
  }

  void add(List<Group> groups) {
    for (Group group : groups) add(group.toString(), group.oldest, () -> {});
  }

  /**
   * Adds the stack trace of the thread that has locked the lock, if there is one.
   *
   * @param where the call during which the lock is locked, for example "a call"
   */
  void addOwner(VisibleLock lock, String where) {
    final Thread owner = lock.owner();
    if (owner == null) return;
    final int waiting = lock.getQueueLength();
    final List<String> frames = new ArrayList<>();
    for (StackTraceElement frame : owner.getStackTrace()) frames.add(frame.toString());
    addFrames("thread \"" + owner.getName() + "\" is inside " + where
        + (waiting == 0 ? "" : ", threads that wait: " + waiting), frames);
  }

  private void addFrames(String title, Collection<String> frames) {
    if (frames.isEmpty()) return;
    addLine(title);
    frames.stream().limit(MAX_FRAMES).forEach(frame -> addLine("  at " + frame));
    if (frames.size() > MAX_FRAMES) addLine("  and " + (frames.size() - MAX_FRAMES) + " more");
  }

  private void addLine(String line) {
    lines.append(indent).append(line).append('\n');
  }

  @Override
  public String toString() {
    return lines.toString();
  }
}
