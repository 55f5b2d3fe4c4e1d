package org.quendel.oxli;

import java.util.List;
import java.util.Map;

/** One message of a {@link Scheme}. Immutable; made by native code. */
public final class MessageDesc {
  private final long number;
  private final String name;
  private final String description;
  private final Map<String, String> hints;
  private final List<FieldDesc> fields;
  private final List<IndexDesc> indices;

  MessageDesc(long number, String name, String description, String[] hints, FieldDesc[] fields,
      IndexDesc[] indices) {
    this.number = number;
    this.name = name;
    this.description = description;
    this.hints = Descriptions.hints(hints);
    this.fields = Descriptions.list(fields);
    this.indices = Descriptions.list(indices);
  }

  /** The gateway's number of the message, unsigned 32-bit. */
  public long getNumber() {
    return number;
  }

  /** The name by which a publisher makes the message. */
  public String getName() {
    return name;
  }

  /** Text for people. */
  public String getDescription() {
    return description;
  }

  /** Hints by key, unmodifiable. */
  public Map<String, String> getHints() {
    return hints;
  }

  /** The fields in the order of the null map, unmodifiable. */
  public List<FieldDesc> getFields() {
    return fields;
  }

  /** The indexes, unmodifiable. */
  public List<IndexDesc> getIndices() {
    return indices;
  }
}
