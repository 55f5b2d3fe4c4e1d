package org.quendel.oxli;

/** A field's part in an {@link IndexDesc}. Immutable; made by native code. */
public final class IndexFieldDesc {
  private final FieldDesc field;
  private final int parameter;

  IndexFieldDesc(FieldDesc field, int parameter) {
    this.field = field;
    this.parameter = parameter;
  }

  /** The field: an object equal in content to the message's, not the same one. */
  public FieldDesc getField() {
    return field;
  }

  /** The gateway's parameter of the field in this index. */
  public int getParameter() {
    return parameter;
  }
}
