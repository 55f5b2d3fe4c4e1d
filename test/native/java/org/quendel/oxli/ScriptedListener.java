package org.quendel.oxli;

/** A listener whose {@code getScheme} calls the C++ test that is running. */
final class ScriptedListener extends Listener {
  ScriptedListener() {
    super(0L);
  }

  @Override
  public native Scheme getScheme();
}
