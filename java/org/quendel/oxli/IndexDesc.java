package org.quendel.oxli;

import java.util.List;
import java.util.Map;

/** One index of a {@link MessageDesc}. Immutable; made by native code. */
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

  /** Returns the name. */
  @Override
  public String toString() {
    return "index " + name;
  }

  /** Gives each field the position in null maps that the message's field of the same name has. */
  void placeLike(Map<String, FieldDesc> fieldsByName) {
    for (IndexFieldDesc member : fields) {
      final FieldDesc field = member == null ? null : member.getField();
      final FieldDesc same = field == null ? null : fieldsByName.get(field.getName());
      if (same != null) field.place(same.getPosition());
    }
  }
}
