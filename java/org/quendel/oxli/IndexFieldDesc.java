package org.quendel.oxli;

/** A field of an {@link IndexDesc}. Immutable; made by native code. */
public final class IndexFieldDesc {
  private final FieldDesc field;
  private final int parameter;

  IndexFieldDesc(FieldDesc field, int parameter) {
    this.field = field;
    this.parameter = parameter;
  }

  /** Returns the field: another object than the message's, with the same content. */
  public FieldDesc getField() {
    return field;
  }

  /** Returns the number that the gateway's description gives the field in this index. */
  public int getParameter() {
    return parameter;
  }

  /** Returns the field and the parameter. */
  @Override
  public String toString() {
    return field + ", parameter " + parameter;
  }
}
