package org.quendel.oxli;

/** Describes one field of an {@link IndexDesc}. Made by native code; immutable. */
public final class IndexFieldDesc {
  private final FieldDesc field;
  private final int parameter;

  IndexFieldDesc(FieldDesc field, int parameter) {
    this.field = field;
    this.parameter = parameter;
  }

  /** Returns the field. It equals the message's field in content, but is another object. */
  public FieldDesc getField() {
    return field;
  }

  /** Returns the parameter of the field in the gateway's description of the index. */
  public int getParameter() {
    return parameter;
  }

  /** Returns the field and the parameter. */
  @Override
  public String toString() {
    return field + ", parameter " + parameter;
  }
}
