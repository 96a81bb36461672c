package vendor.norvo.hardware.vela;

/** One resource item of a request or of a reply. */
@VintfStability
parcelable VelaRequestData {
    /** Resource opcode, carried bit for bit (an opcode with the top bit set is negative here). */
    int id;
    /** Second integer of the item: 0 for resources, the notification parameter otherwise. */
    int param;
    /** The resource's value as text. */
    @nullable String value;
    /** Second text: the resource path for path-named resources. */
    @nullable String value2;
    /** Third text: free text, such as one history record. */
    @nullable String value3;
}
