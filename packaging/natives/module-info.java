/** The native libraries of {@code org.quendel.oxli} for one platform, as resources. */
module org.quendel.oxli.natives {}
