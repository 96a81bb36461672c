package vendor.norvo.hardware.vela;

import vendor.norvo.hardware.vela.VelaRequestData;

/**
 * Implemented by clients. The method is two-way on purpose: a two-way stub also answers a
 * one-way call, so it stays compatible whichever way the service calls it.
 */
@VintfStability
interface IVelaCallback {
    void onCallback(in VelaRequestData[] items);
}
