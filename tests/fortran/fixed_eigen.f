C     The stages of the eigen-solver on a pair of known values.
      SUBROUTINE FIXED_EIGEN(LAMBDA, IERR)
      IMPLICIT NONE
      INTEGER IERR, J
      DOUBLE PRECISION LAMBDA(2), A(2,2), B(2,2), Z(2,2)
      DOUBLE PRECISION ALFR(2), ALFI(2), BETA(2), X, EIGPSN
      EXTERNAL EIGPSN
      DATA A /2D0, 1D0, 1D0, 2D0/, B /1D0, 0D0, 0D0, 1D0/
      CALL ZEL_QZHESS(2, 2, A, B, 1, Z)
      CALL ZEL_QZITT(2, 2, A, B, 0D0, 1, Z, IERR)
      CALL ZEL_QZVALL(2, 2, A, B, ALFR, ALFI, BETA, 1, Z)
      CALL ZEL_QZVECC(2, 2, A, B, ALFR, ALFI, BETA, Z)
      DO 10 J = 1, 2
        LAMBDA(J) = ALFR(J) / BETA(J)
   10 CONTINUE
C     The vectors are (1 1) and (1 -1) up to sign.
      IF (DABS(DABS(Z(1,1)) - 1D0) .GT. 1D-14) IERR = 1
      IF (DABS(DABS(Z(2,2)) - 1D0) .GT. 1D-14) IERR = 1
      X = 1D0
      IF (DABS(EIGPSN(X) - 0.5D0**53) .GT. 0D0) IERR = 1
      END
