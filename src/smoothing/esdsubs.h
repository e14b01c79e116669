// Kernel of double (one-weight level/trend) exponential smoothing.
//
// States: level L and trend T; one weight w serves both. One observation x:
//   xhat = L + T / w                     (the one-step prediction)
//   e    = xhat - x
//   L'   = x * w + (1 - w) * L
//   T'   = T * (1 - w) + w * (L' - L)
// A missing observation moves the level by the trend, not by T / w:
// L' = L + T, T' = T.
//
// A weight below 1.491668147e-154 in absolute value is an overflow (-9),
// because of the division. Return codes as in the other kernels: 0, -2,
// -9, -92.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int zesdpnt(double x, double xscale, double wlevel, double* level,
            double* trend, double* xhat, double* e);
int zesddpd(double x, double wlevel, double llevel, double clevel,
            double ltrend, double ctrend, double* derlev, double* dertre,
            double* dervec);
int zesdsmo(double* x, char* misflg, double xscale, long n, double wlevel,
            double* level, double* trend, double* mse, double* smoothed,
            double* strptr);
int zesdsvi(double* x, char* misflg, long n, int stflg, double* level,
            double* trend);
int zesdprd(double* x, char* misflg, double xscale, long n, double wlevel,
            double* level, double* trend, long start, long end, long lead,
            double se2, double siglev, int startflg, double* mse,
            double* strptr);
double zesdcla(double wlevel, double se2, long lead, double siglev,
               double* limit);
int zesdpsi(double wlevel, long npsi, double* psi);
int zesdnpd(double* x, char* misflg, double xscale, long n, double wlevel,
            double level, double trend, double deltas, int wkflag,
            double* pder);
int zesdstd(double* xpxdiag, double mse, long nobs, double* parms,
            double* stderr, double* tvals);

#ifdef __cplusplus
}
#endif
