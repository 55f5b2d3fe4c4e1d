package org.quendel.oxli;

import java.util.List;
import java.util.Map;

/**
 * Describes one index of a {@link MessageDesc}. Made by native code; immutable after the scheme is
 * filled.
 */
public final class IndexDesc {
  private final String name;
  private final String description;
  private final Map<String, String> hints;
  private final List<IndexFieldDesc> fields;

  IndexDesc(String name, String description, String[] hints, IndexFieldDesc[] fields) {
    this.name = name;
    this.description = description;
    this.hints = Descriptions.hints(hints);
    this.fields = Descriptions.list(fields);
  }

  /** Returns the index's name. */
  public String getName() {
    return name;
  }

  /** Returns the index's description for human readers. */
  public String getDescription() {
    return description;
  }

  /** Returns the hints by key, unmodifiable. */
  public Map<String, String> getHints() {
    return hints;
  }

  /** Returns the fields in index order, unmodifiable. */
  public List<IndexFieldDesc> getFields() {
    return fields;
  }

  /** Returns "index" and the name. */
  @Override
  public String toString() {
    return "index " + name;
  }

  /** Copies the positions in the null map from the message's fields of the same names. */
  void copyPositions(Map<String, FieldDesc> fieldsByName) {
    for (IndexFieldDesc member : fields) {
      final FieldDesc field = member == null ? null : member.getField();
      final FieldDesc same = field == null ? null : fieldsByName.get(field.getName());
      if (same != null) field.setPosition(same.getPosition());
    }
  }
}
