package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/** Reports that a posted message does not match the scheme of its stream. */
public final class ParseErrorMessage extends DataMessage {
  private int error;

  ParseErrorMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(MessageType.PARSE_ERROR, msgId, msgIndex, msgName, scheme);
  }

  /** Returns the gateway's error code, or 0 if it gave none. */
  public int getError() {
    requireUsable();
    return error;
  }

  void setError(int newError) {
    error = newError;
  }

  @Override
  public ParseErrorMessage copy() {
    return (ParseErrorMessage) super.copy();
  }

  @Override
  String contents() {
    return super.contents() + ", error 0x" + Integer.toHexString(error);
  }
}
