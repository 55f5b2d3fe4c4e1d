package org.quendel.oxli.messages;

/** The state from which a replication can be resumed. */
public final class ZrReplStateMessage extends Message {
  private String replState;

  ZrReplStateMessage() {
    super(MessageType.ZRREPL_STATE);
  }

  /** The gateway's text of the state, to be handed back in the settings of a later opening. */
  public String getReplState() {
    return replState;
  }

  void setReplState(String newReplState) {
    replState = newReplState;
  }
}
