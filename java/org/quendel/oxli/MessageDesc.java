package org.quendel.oxli;

import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.Objects;

/** One message of a {@link Scheme}. Immutable once the scheme is filled; made by native code. */
public final class MessageDesc {
  private final long number;
  private final String name;
  private final String description;
  private final Map<String, String> hints;
  private final List<FieldDesc> fields;
  private final List<IndexDesc> indices;
  private final Map<String, FieldDesc> fieldsByName;
  private final Map<String, IndexDesc> indicesByName;
  private final FieldDesc[] zblockFields; // those of nested messages at their outer offset

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
    zblockFields = this.fields.stream().filter(Objects::nonNull).flatMap(FieldDesc::zblockFields)
        .toArray(FieldDesc[]::new);
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

  /** Returns the fields that contain z-blocks, those of nested messages too; not to be written. */
  FieldDesc[] zblockFields() {
    return zblockFields;
  }

  boolean hasZblockAt(int offset) {
    for (FieldDesc field : zblockFields) {
      if (field.getOffset() == offset) return true;
    }
    return false;
  }

  /** Returns the message's id, unsigned 32-bit; 4294967295 if it has none. */
  public long getNumber() {
    return number;
  }

  /** Returns the name by which a publisher makes the message. */
  public String getName() {
    return name;
  }

  /** Returns the message's description for human readers. */
  public String getDescription() {
    return description;
  }

  /** Returns the hints by key, unmodifiable. */
  public Map<String, String> getHints() {
    return hints;
  }

  /** Returns the fields in the order of the null map, unmodifiable. */
  public List<FieldDesc> getFields() {
    return fields;
  }

  /**
   * Returns a field by its name. It is the same for each message of the scheme's opening: look it
   * up once.
   *
   * @throws NoSuchElementException if there is none of that name
   */
  public FieldDesc getField(String fieldName) {
    return Descriptions.get(fieldsByName, fieldName, this, "field");
  }

  /** Returns the indexes, unmodifiable. */
  public List<IndexDesc> getIndices() {
    return indices;
  }

  /**
   * Returns an index by its name.
   *
   * @throws NoSuchElementException if there is none of that name
   */
  public IndexDesc getIndex(String indexName) {
    return Descriptions.get(indicesByName, indexName, this, "index");
  }

  /** Returns the name. */
  @Override
  public String toString() {
    return "message " + name;
  }
}
