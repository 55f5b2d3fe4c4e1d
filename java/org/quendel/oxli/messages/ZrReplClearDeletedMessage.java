package org.quendel.oxli.messages;

/** Reports that the rows of a table whose revisions are smaller than a given one are deleted. */
public final class ZrReplClearDeletedMessage extends Message {
  private int tableIdx;
  private long tableRev;

  ZrReplClearDeletedMessage() {
    super(MessageType.ZRREPL_CLEAR_DELETED);
  }

  /** Returns the table: the position in the scheme of the message whose rows are deleted. */
  public int getTableIdx() {
    requireUsable();
    return tableIdx;
  }

  /** Returns the revision: the rows with a smaller one are deleted. */
  public long getTableRev() {
    requireUsable();
    return tableRev;
  }

  void setTableIdx(int newTableIdx) {
    tableIdx = newTableIdx;
  }

  void setTableRev(long newTableRev) {
    tableRev = newTableRev;
  }

  @Override
  String contents() {
    return ", table " + tableIdx + ", revision " + tableRev;
  }
}
