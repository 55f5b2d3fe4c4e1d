package org.quendel.oxli.messages;

/** Reports that the listener has opened. Other messages follow. */
public final class OpenMessage extends Message {
  OpenMessage() {
    super(MessageType.OPEN);
  }
}
