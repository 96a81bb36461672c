package vendor.norvo.hardware.vela;

import vendor.norvo.hardware.vela.IVelaCallback;
import vendor.norvo.hardware.vela.VelaRequestData;
import vendor.norvo.hardware.vela.VelaRequestParcel;

/** The platform's resource-control service. The method order is the wire contract. */
@VintfStability
interface IVela {
    void init();
    int resCtlRequest(in VelaRequestParcel request);
    int resCtlRelease(int handle);
    VelaRequestData[] resStateRequest(in VelaRequestParcel request);
    int resListeningRegister(in VelaRequestParcel request, IVelaCallback callback);
    int resListeningUnregister(int handle);
    String propertyGet(String key);
    int propertySet(String key, String value);
    int thermalListeningRegister(in int[] ids, IVelaCallback callback);
    int thermalListeningUnregister(int handle);
    /** Holds its slot so that the later methods keep their transaction codes. Never called. */
    int reserved();
    int setRelatedSysInfo(int info, long value);
    int ruleCtl(int ruleId, int status, in VelaRequestData[] items);
}
