// Kernel of linear (two-weight trend) exponential smoothing.
//
// States: level L and trend T. Weights: wlevel, wtrend (in this order
// wherever two values go together). One observation x:
//   xhat   = L + T                         (the one-step prediction)
//   e      = xhat - x                      (prediction minus observation)
//   L'     = xhat * (1 - wlevel) + x * wlevel
//   T'     = (1 - wtrend) * T + wtrend * (L' - L)
// A missing observation moves the level by the trend: L' = L + T, T' = T.
//
// A pass over a series runs backward from the start values (the last usable
// observation and the fitted slope turned against time), turns round
// (L += T, T = -T), then runs forward accumulating the squared errors.
//
// Return codes: 0 success, -2 too few usable observations, -9 numeric
// overflow, -92 guarded division met a zero or overflowing denominator.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int zes2pnt(double x, double xscale, double wlevel, double wtrend,
            double* level, double* trend, double* xhat, double* e);
int zes2dpd(double x, double wlevel, double wtrend, double llevel,
            double clevel, double ltrend, double ctrend, double* derlev,
            double* dertre, double* dervec);
int zes2smo(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double* level, double* trend, double* mse,
            double* smoothed, double* strptr);
int zes2svi(double* x, char* misflg, long n, int stflg, double* level,
            double* trend);
int zes2prd(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double* level, double* trend, long start,
            long end, long lead, double se2, double siglev, int startflg,
            double* mse, double* strptr);
double zes2cla(double wlevel, double wtrend, double se2, long lead,
               double siglev, double* limit);
int zes2psi(double wlevel, double wtrend, long npsi, double* psi);
int zes2npd(double* x, char* misflg, double xscale, long n, double wlevel,
            double wtrend, double level, double trend, double* deltas,
            int wkflag, double* pder);
int zes2std(double* xpxdiag, double mse, long nobs, double* parms,
            double* stderr, double* tvals);
// Non-zero when 0 < wlevel < 2 and 0 <= wtrend < 4 / wlevel - 2.
int zes2stb(double wlevel, double wtrend);

#ifdef __cplusplus
}
#endif
