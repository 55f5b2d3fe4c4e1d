package org.quendel.oxli.messages;

/** The replicated rows have reached the present: what follows are changes. */
public final class ZrReplOnlineMessage extends Message {
  ZrReplOnlineMessage() {
    super(MessageType.ZRREPL_ONLINE);
  }
}
