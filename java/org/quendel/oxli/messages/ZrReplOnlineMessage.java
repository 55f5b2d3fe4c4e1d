package org.quendel.oxli.messages;

/** The snapshot of the replicated stream is complete: the rows that follow are changes. */
public final class ZrReplOnlineMessage extends Message {
  ZrReplOnlineMessage() {
    super(MessageType.ZRREPL_ONLINE);
  }
}
