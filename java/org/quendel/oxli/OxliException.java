package org.quendel.oxli;

/**
 * The gateway, native code or a subscriber refused an operation. The message says which operation,
 * on which object, and what the code means; the gateway's log says why. The stand-in gateway writes
 * its log to standard error if the environment's settings contain {@code log=stderr}.
 */
public final class OxliException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  /** Of the gateway, of this library, or of a subscriber. */
  private final int code;

  /** Makes one without a code of its own: {@link ResultCode#INTERNAL}. Native code calls it too. */
  public OxliException(String message) {
    this(message, ResultCode.INTERNAL);
  }

  /** Makes one with a result code. */
  public OxliException(String message, int code) {
    super(message);
    this.code = code;
  }

  /**
   * Returns the result code: one of {@link ResultCode}, another of the gateway, or a subscriber's.
   */
  public int getCode() {
    return code;
  }

  /** Returns the gateway's name of the code, such as {@code OX_ERR_INVALIDSTATE}. */
  public String getName() {
    return ResultCode.nameOf(code);
  }
}
