package vendor.norvo.hardware.vela;

import vendor.norvo.hardware.vela.IVelaCallback;
import vendor.norvo.hardware.vela.VelaRequestData;

/** One request to the resource-control service. */
@VintfStability
parcelable VelaRequestParcel {
    /** Kind of request: 0 state/listen, 1 control, 2 SA control, 5 diagnostic, 7 thermal, ... */
    int requestType;
    VelaRequestData[] requestDatas;
    boolean optionFlag;
    int param4;
    int param6;
    long param2;
    /**
     * Free texts: a debug marker for path requests, notification values for notify.
     * An array rather than a List: both have the same NDK type and wire form, and the
     * host's generator only handles the array.
     */
    @nullable String[] paths;
    int param1;
    /** Where the service answers asynchronously, if the caller wants it. */
    @nullable IVelaCallback callback;
    @nullable String packageName;
    @nullable String identity;
    @nullable long[] extraValues;
}
