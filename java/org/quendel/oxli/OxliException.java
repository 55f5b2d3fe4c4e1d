package org.quendel.oxli;

/** The gateway refused an operation or failed in it. The code says why. */
public final class OxliException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  private final int code;

  /** A failure without a code of its own: {@link ResultCode#INTERNAL}. Also thrown natively. */
  public OxliException(String message) {
    this(message, ResultCode.INTERNAL);
  }

  /** A failure with the gateway's result code. */
  public OxliException(String message, int code) {
    super(message);
    this.code = code;
  }

  /** The result code: one of {@link ResultCode}, another of the gateway's, or a subscriber's. */
  public int getCode() {
    return code;
  }

  /** The gateway's name of the code, such as {@code OX_ERR_INVALIDSTATE}. */
  public String getName() {
    return ResultCode.nameOf(code);
  }
}
