package org.quendel.oxli.messages;

/** Rows of a table older than a revision are gone. */
public final class ZrReplClearDeletedMessage extends Message {
  private int tableIdx;
  private long tableRev;

  ZrReplClearDeletedMessage() {
    super(MessageType.ZRREPL_CLEAR_DELETED);
  }

  /** Index of the table's message in the scheme. */
  public int getTableIdx() {
    return tableIdx;
  }

  /** Rows with a smaller revision are gone. */
  public long getTableRev() {
    return tableRev;
  }

  void setTableIdx(int newTableIdx) {
    tableIdx = newTableIdx;
  }

  void setTableRev(long newTableRev) {
    tableRev = newTableRev;
  }
}
