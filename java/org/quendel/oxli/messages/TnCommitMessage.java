package org.quendel.oxli.messages;

/** Ends what a {@link TnBeginMessage} began. */
public final class TnCommitMessage extends Message {
  TnCommitMessage() {
    super(MessageType.TN_COMMIT);
  }
}
