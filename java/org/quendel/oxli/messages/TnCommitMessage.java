package org.quendel.oxli.messages;

/** The messages since the last {@link TnBeginMessage} are complete. */
public final class TnCommitMessage extends Message {
  TnCommitMessage() {
    super(MessageType.TN_COMMIT);
  }
}
