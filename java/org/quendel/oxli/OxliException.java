package org.quendel.oxli;

/**
 * Thrown if the gateway, native code or a subscriber refuses an operation. The message contains the
 * operation, the object and the meaning of the code; the gateway's log contains the reason. The
 * stand-in gateway writes its log to standard error if the environment's settings contain {@code
 * log=stderr}.
 */
public final class OxliException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  private final int code;

  /** Makes an exception with {@link ResultCode#INTERNAL}. Native code calls it, too. */
  public OxliException(String message) {
    this(message, ResultCode.INTERNAL);
  }

  /** Makes an exception with a result code. */
  public OxliException(String message, int code) {
    super(message);
    this.code = code;
  }

  /**
   * Returns the result code: one of {@link ResultCode}, another code of the gateway, or the result
   * of a subscriber.
   */
  public int getCode() {
    return code;
  }

  /** Returns the gateway's name of the code, such as {@code OX_ERR_INVALIDSTATE}. */
  public String getName() {
    return ResultCode.nameOf(code);
  }
}
