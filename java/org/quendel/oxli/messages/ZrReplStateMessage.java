package org.quendel.oxli.messages;

/** Contains the state from which a later opening of the listener can resume the replica. */
public final class ZrReplStateMessage extends Message {
  private String replState;

  ZrReplStateMessage() {
    super(MessageType.ZRREPL_STATE);
  }

  /** Returns the state. Pass it in the settings of a later opening. */
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
