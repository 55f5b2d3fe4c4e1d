package org.quendel.oxli.messages;

/** Begins a transaction: the messages up to the next {@link TnCommitMessage} belong together. */
public final class TnBeginMessage extends Message {
  TnBeginMessage() {
    super(MessageType.TN_BEGIN);
  }
}
