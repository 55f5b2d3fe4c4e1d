package org.quendel.oxli.messages;

/** The state from which a later opening of the listener can resume the replication. */
public final class ZrReplStateMessage extends Message {
  private String replState;

  ZrReplStateMessage() {
    super(MessageType.ZRREPL_STATE);
  }

  /** Returns the state, to be passed in the settings of a later opening. */
  public String getReplState() {
    requireUsable();
    return replState;
  }

  void setReplState(String newReplState) {
    replState = newReplState;
  }

  @Override
  String contents() {
    return ", state " + replState;
  }
}
