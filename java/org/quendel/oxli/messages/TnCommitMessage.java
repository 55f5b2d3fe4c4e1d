package org.quendel.oxli.messages;

/** Ends the transaction that the last {@link TnBeginMessage} began. */
public final class TnCommitMessage extends Message {
  TnCommitMessage() {
    super(MessageType.TN_COMMIT);
  }
}
