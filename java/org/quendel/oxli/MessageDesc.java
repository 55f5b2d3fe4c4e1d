package org.quendel.oxli;

import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.Objects;

/**
 * Describes one message of a {@link Scheme}. Made by native code; immutable after the scheme is
 * filled.
 */
public final class MessageDesc {
  private final long number;
  private final String name;
  private final String description;
  private final Map<String, String> hints;
  private final List<FieldDesc> fields;
  private final List<IndexDesc> indices;
  private final Map<String, FieldDesc> fieldsByName;
  private final Map<String, IndexDesc> indicesByName;
  private final FieldDesc[] zblockFields; // also of nested messages; offsets are in this message

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
      if (fields[i] != null) fields[i].setPosition(i);
    }
    setPositionsInIndices();
    zblockFields = this.fields.stream().filter(Objects::nonNull).flatMap(FieldDesc::zblockFields)
        .toArray(FieldDesc[]::new);
  }

  /**
   * Sets the fields to have no position in the null map: null maps have no flags for fields of
   * nested messages. Called by the field whose nested message this describes.
   */
  void markNested() {
    for (FieldDesc field : fields) {
      if (field != null) field.setPosition(FieldDesc.NO_POSITION);
    }
    setPositionsInIndices();
  }

  /** Sets the positions in the separate field objects that native code makes for indexes. */
  private void setPositionsInIndices() {
    for (IndexDesc index : indices) {
      if (index != null) index.copyPositions(fieldsByName);
    }
  }

  /** Returns the z-block fields, including those of nested messages. Do not change the array. */
  FieldDesc[] zblockFields() {
    return zblockFields;
  }

  boolean hasZblockAt(int offset) {
    for (FieldDesc field : zblockFields) {
      if (field.getOffset() == offset) return true;
    }
    return false;
  }

  /** Returns the message's id, an unsigned 32-bit number; 4294967295 if it has none. */
  public long getNumber() {
    return number;
  }

  /** Returns the message's name: the argument of {@link Publisher#newMessage}. */
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
   * Returns a field by its name. The field applies to all messages of this description until the
   * listener or publisher is opened again: look it up once after each opening.
   *
   * @throws NoSuchElementException if there is no field of that name
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
   * @throws NoSuchElementException if there is no index of that name
   */
  public IndexDesc getIndex(String indexName) {
    return Descriptions.get(indicesByName, indexName, this, "index");
  }

  /** Returns "message" and the name. */
  @Override
  public String toString() {
    return "message " + name;
  }
}
