/** Internal: the binding to native code that needs no gateway. Not an API. */
package org.quendel.oxli.ex.impl;
