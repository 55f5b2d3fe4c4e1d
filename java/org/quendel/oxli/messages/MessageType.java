package org.quendel.oxli.messages;

/** The type codes that {@link Message#getType} returns for messages with a class of their own. */
public final class MessageType {
  /** {@link OpenMessage}. */
  public static final int OPEN = 0x100;
  /** {@link CloseMessage}. */
  public static final int CLOSE = 0x101;
  /** {@link TimeMessage}. */
  public static final int TIME = 0x102;
  /** {@link DataMessage}. */
  public static final int DATA = 0x110;
  /** {@link StreamDataMessage}. */
  public static final int STREAM_DATA = 0x120;
  /** {@link ParseErrorMessage}. */
  public static final int PARSE_ERROR = 0x190;
  /** {@link TnBeginMessage}. */
  public static final int TN_BEGIN = 0x200;
  /** {@link TnCommitMessage}. */
  public static final int TN_COMMIT = 0x210;
  /** {@link ZrMqTimeOutMessage}. */
  public static final int ZRMQ_TIMEOUT = 0x1001;
  /** {@link ZrReplLifeNumMessage}. */
  public static final int ZRREPL_LIFENUM = 0x1110;
  /** {@link ZrReplClearDeletedMessage}. */
  public static final int ZRREPL_CLEAR_DELETED = 0x1111;
  /** {@link ZrReplOnlineMessage}. */
  public static final int ZRREPL_ONLINE = 0x1112;
  /** {@link ZrReplStateMessage}. */
  public static final int ZRREPL_STATE = 0x1115;

  private MessageType() {}
}
