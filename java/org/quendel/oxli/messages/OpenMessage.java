package org.quendel.oxli.messages;

/** The listener has been opened: messages follow. */
public final class OpenMessage extends Message {
  OpenMessage() {
    super(MessageType.OPEN);
  }
}
