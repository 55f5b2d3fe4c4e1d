package org.quendel.oxli;

/**
 * Flags of {@link Publisher#post(org.quendel.oxli.messages.Message, int)} that the stand-in gateway
 * defines. Combine them with {@code |}. Another gateway may define other flags.
 */
public final class PostFlag {
  /**
   * Requests a reply. If no reply is posted within the publisher's {@code reply_timeout}, the
   * listeners of its connection receive a {@link org.quendel.oxli.messages.ZrMqTimeOutMessage}.
   */
  public static final int REPLY_WANTED = 1;
  /** Deletes the rows of the message's table whose revisions are smaller than the message's. */
  public static final int CLEAR_DELETED = 2;

  private PostFlag() {}
}
