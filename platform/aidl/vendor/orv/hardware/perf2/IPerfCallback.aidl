package vendor.orv.hardware.perf2;

@VintfStability
interface IPerfCallback {
    oneway void notifyCallback(in int hint, in String userDataStr, in int userData1,
            in int userData2, in int[] reserved);
}
