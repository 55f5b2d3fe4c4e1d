/** Internal: the native that parses settings. Applications do not use it. */
package org.quendel.oxli.ex.impl;
