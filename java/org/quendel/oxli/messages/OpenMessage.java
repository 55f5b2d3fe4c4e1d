package org.quendel.oxli.messages;

/** The listener has opened: other messages follow. */
public final class OpenMessage extends Message {
  OpenMessage() {
    super(MessageType.OPEN);
  }
}
