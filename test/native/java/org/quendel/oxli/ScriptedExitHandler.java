package org.quendel.oxli;

/** Passes the exit event to the C++ test that is running. */
final class ScriptedExitHandler implements IExitEventHandler {
  @Override
  public native void onExitEvent();
}
