package org.quendel.oxli;

/** Result codes that this library uses. The gateway has further codes. */
public final class ResultCode {
  /** Success. */
  public static final int OK = 0;
  /** The gateway or the native library failed. */
  public static final int INTERNAL = 0x20000;
  /** An argument is invalid. */
  public static final int INVALID_ARGUMENT = 0x20001;
  /** The state of the object does not allow the operation. */
  public static final int INVALID_STATE = 0x20005;
  /** A buffer is too small for the result. */
  public static final int BUFFER_TOO_SMALL = 0x20007;

  private ResultCode() {}

  /**
   * Returns the gateway's name of the code, such as {@code OX_ERR_INVALIDSTATE}, or {@code OX_ERR_}
   * and the number.
   */
  public static String nameOf(int code) {
    switch (code) {
      case OK:
        return "OX_ERR_OK";
      case INTERNAL:
        return "OX_ERR_INTERNAL";
      case INVALID_ARGUMENT:
        return "OX_ERR_INVALIDARGUMENT";
      case INVALID_STATE:
        return "OX_ERR_INVALIDSTATE";
      case BUFFER_TOO_SMALL:
        return "OX_ERR_BUFFERTOOSMALL";
      default:
        return "OX_ERR_0x" + Integer.toHexString(code);
    }
  }
}
