package org.quendel.oxli;

import java.util.ArrayList;
import java.util.Collection;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.function.Function;

/** When an object was made, and where if the system property asks for it. Immutable. */
final class Origin {
  private static final boolean KEEPS_FRAMES = Boolean.getBoolean("oxli.dump.origins");
  private static final Set<String> OWN_CLASSES = Set.of(Origin.class.getName(),
      Environment.class.getName(), Connection.class.getName(), Publisher.class.getName(),
      Listener.class.getName(), ZBlock.class.getName());

  private final long time = System.nanoTime();
  // Strings, because an element of a stack trace may keep its class alive.
  private final List<String> frames = KEEPS_FRAMES ? callers() : Collections.emptyList();

  private static List<String> callers() {
    final List<String> callers = new ArrayList<>();
    for (StackTraceElement frame : new Throwable().getStackTrace()) {
      final boolean isOwn = callers.isEmpty() && OWN_CLASSES.contains(frame.getClassName());
      if (!isOwn && callers.size() < Dump.MAX_FRAMES) callers.add(frame.toString());
    }
    return callers;
  }

  /** Returns the objects, those made first before others. */
  static <T> List<T> inOrder(Collection<T> objects, Function<T, Origin> originOf) {
    final List<T> sorted = new ArrayList<>(objects);
    sorted.sort((a, b) -> originOf.apply(a).isBefore(originOf.apply(b)) ? -1
        : originOf.apply(b).isBefore(originOf.apply(a)) ? 1 : 0);
    return sorted;
  }

  boolean isBefore(Origin other) {
    return time - other.time < 0;
  }

  /** Returns the time since then, such as "1.5 s old". */
  String age() {
    return String.format(Locale.ROOT, "%.1f s old", (System.nanoTime() - time) / 1e9);
  }

  /** Returns the callers of this library, the innermost first; empty if they are not known. */
  List<String> frames() {
    return frames;
  }

  /** Returns ", made at" and the innermost caller, or "" if it is not known. */
  String place() {
    return frames.isEmpty() ? "" : ", made at " + frames.get(0);
  }
}
