package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/** A data message that the gateway could not read. */
public final class ParseErrorMessage extends DataMessage {
  private int error;

  ParseErrorMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(MessageType.PARSE_ERROR, msgId, msgIndex, msgName, scheme);
  }

  /** The gateway's error code, 0 when it gave none. */
  public int getError() {
    return error;
  }

  void setError(int newError) {
    error = newError;
  }

  @Override
  public ParseErrorMessage copy() {
    return (ParseErrorMessage) super.copy();
  }
}
