package org.quendel.oxli;

import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.Objects;

/** One message of a {@link Scheme}. Immutable; made by native code. */
public final class MessageDesc {
  private final long number;
  private final String name;
  private final String description;
  private final Map<String, String> hints;
  private final List<FieldDesc> fields;
  private final List<IndexDesc> indices;
  private final Map<String, FieldDesc> fieldsByName;
  private final Map<String, IndexDesc> indicesByName;
  private final int[] zblocks; // where z-blocks are, those of nested messages too; ascending

  MessageDesc(long number, String name, String description, String[] hints, FieldDesc[] fields,
      IndexDesc[] indices) {
    this.number = number;
    this.name = name;
    this.description = description;
    this.hints = Descriptions.hints(hints);
    this.fields = Descriptions.list(fields);
    this.indices = Descriptions.list(indices);
    fieldsByName = Descriptions.byName(fields, FieldDesc::getName);
    indicesByName = Descriptions.byName(indices, IndexDesc::getName);
    for (int i = 0; i < fields.length; ++i) {
      if (fields[i] != null) fields[i].place(i);
    }
    placeIndices();
    zblocks = this.fields.stream().filter(Objects::nonNull).flatMapToInt(FieldDesc::zblocks)
        .sorted().toArray();
  }

  /** Called by the field whose nested message this describes: null maps are of outer fields. */
  void markNested() {
    for (FieldDesc field : fields) {
      if (field != null) field.place(FieldDesc.NOWHERE);
    }
    placeIndices();
  }

  /** Native code gives indexes field objects of their own. */
  private void placeIndices() {
    for (IndexDesc index : indices) {
      if (index != null) index.placeLike(fieldsByName);
    }
  }

  /** The offsets of the z-blocks, not to be written. */
  int[] zblocks() {
    return zblocks;
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

  /**
   * A field by its name. For every message of the scheme's opening: look it up once.
   *
   * @throws NoSuchElementException when there is none of that name
   */
  public FieldDesc getField(String fieldName) {
    return Descriptions.get(fieldsByName, fieldName, "message", name, "field");
  }

  /** The indexes, unmodifiable. */
  public List<IndexDesc> getIndices() {
    return indices;
  }

  /**
   * An index by its name.
   *
   * @throws NoSuchElementException when there is none of that name
   */
  public IndexDesc getIndex(String indexName) {
    return Descriptions.get(indicesByName, indexName, "message", name, "index");
  }
}
