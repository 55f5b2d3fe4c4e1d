package org.quendel.oxli.messages;

/** Reports that the snapshot of the replica is complete. The rows that follow are changes. */
public final class ZrReplOnlineMessage extends Message {
  ZrReplOnlineMessage() {
    super(MessageType.ZRREPL_ONLINE);
  }
}
