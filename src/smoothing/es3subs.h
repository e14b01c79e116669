// Kernel of damped-trend exponential smoothing.
//
// States: level L and trend T. Weights: wlevel, wtrend, wdamp (in this order
// wherever three values go together). One observation x, with D = wdamp*T:
//   xhat = L + D                          (the one-step prediction)
//   e    = xhat - x
//   L'   = xhat * (1 - wlevel) + x * wlevel
//   T'   = wtrend * (L' - L) + D * (1 - wtrend)
// A missing observation damps the trend and moves the level by it:
// T' = wdamp * T, L' = L + T'.
//
// Return codes: 0, -2, -9, -92 as in the other kernels.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int zes3pnt(double x, double xscale, double wlevel, double wtrend,
            double wdamp, double* level, double* trend, double* xhat,
            double* e);
int zes3dpd(double x, double wlevel, double wtrend, double wdamp,
            double llevel, double clevel, double ltrend, double ctrend,
            double* derlev, double* dertre, double* dervec);
int zes3smo(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double wdamp, double* level, double* trend,
            double* mse, double* smoothed, double* strptr);
int zes3svi(double* x, char* misflg, long n, int stflg, double* level,
            double* trend);
// 1 when the roots of z^2 + b z + c lie inside the unit circle, else 0.
int zes3stb(double wlevel, double wtrend, double wdamp);
int zes3prd(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double wdamp, double* level, double* trend,
            long start, long end, long lead, double se2, double siglev,
            int startflg, double* mse, double* strptr);
int zes3psi(double wlevel, double wtrend, double wdamp, long npsi,
            double* psi);
int zes3npd(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double wdamp, double level, double trend,
            double* deltas, int wkflag, double* pder);
int zes3std(double* xpxdiag, double mse, long nobs, double* parms,
            double* stderr, double* tvals);

#ifdef __cplusplus
}

// Variance of the prediction `lead` steps ahead and, when `limit` is given,
// the half-width of its limits. Private to the damped family in the module
// image; declared here so that its tests can reach it.
double zes3cla(double wlevel, double wtrend, double wdamp, double se2,
               long lead, double siglev, double* limit);
#endif
