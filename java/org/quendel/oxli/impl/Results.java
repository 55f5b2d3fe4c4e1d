package org.quendel.oxli.impl;

import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;

/** The one place where result codes of natives become exceptions. */
public final class Results {
  private Results() {}

  /**
   * Returns when the code is {@link ResultCode#OK}.
   *
   * @throws OxliException otherwise
   */
  public static void check(String operation, int code) {
    if (code != ResultCode.OK) throw failure(operation, code);
  }

  /** The exception for a failed operation, with the gateway's text for the code. */
  public static OxliException failure(String operation, int code) {
    return new OxliException(operation + ": " + ResultCode.nameOf(code) + " (0x"
        + Integer.toHexString(code) + "): " + OxliImpl.err_getstr(code), code);
  }
}
