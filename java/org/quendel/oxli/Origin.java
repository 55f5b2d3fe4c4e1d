package org.quendel.oxli;

import java.util.ArrayList;
import java.util.Collection;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.function.Function;

/**
 * The time at which an object was made and, with {@code -Doxli.dump.origins=true}, the stack trace.
 * Immutable.
 */
final class Origin {
  private static final boolean KEEPS_FRAMES = Boolean.getBoolean("oxli.dump.origins");
  private static final Set<String> OWN_CLASSES = Set.of(Origin.class.getName(),
      Environment.class.getName(), Connection.class.getName(), Publisher.class.getName(),
      Listener.class.getName(), ZBlock.class.getName());

  private final long time = System.nanoTime();
  // Strings, because a StackTraceElement may keep the class of the frame reachable.
  private final List<String> frames = KEEPS_FRAMES ? callers() : Collections.emptyList();

  private static List<String> callers() {
    final List<String> callers = new ArrayList<>();
    for (StackTraceElement frame : new Throwable().getStackTrace()) {
      final boolean isOwn = callers.isEmpty() && OWN_CLASSES.contains(frame.getClassName());
      if (!isOwn && callers.size() < Dump.MAX_FRAMES) callers.add(frame.toString());
    }
    return callers;
  }

  /** Returns the objects in the order in which they were made. */
  static <T> List<T> inOrder(Collection<T> objects, Function<T, Origin> originOf) {
    final List<T> sorted = new ArrayList<>(objects);
    sorted.sort((a, b) -> originOf.apply(a).isBefore(originOf.apply(b)) ? -1
        : originOf.apply(b).isBefore(originOf.apply(a)) ? 1 : 0);
    return sorted;
  }

  boolean isBefore(Origin other) {
    return time - other.time < 0;
  }

  /** Returns the time since the object was made, such as "1.5 s old". */
  String age() {
    return String.format(Locale.ROOT, "%.1f s old", (System.nanoTime() - time) / 1e9);
  }

  /** Returns the frames that called this library, innermost first; empty without the property. */
  List<String> frames() {
    return frames;
  }

  /** Returns ", made at " and the innermost of these frames, or "" if there is none. */
  String place() {
    return frames.isEmpty() ? "" : ", made at " + frames.get(0);
  }
}
