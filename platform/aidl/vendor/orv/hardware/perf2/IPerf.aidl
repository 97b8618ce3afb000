package vendor.orv.hardware.perf2;

import vendor.orv.hardware.perf2.IPerfCallback;

@VintfStability
interface IPerf {
    int perfCallbackRegister(in IPerfCallback callback, in int clientId);
    int perfCallbackDeregister(in IPerfCallback callback, in int clientId);
}
