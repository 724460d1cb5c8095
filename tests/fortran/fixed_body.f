C     A body through every entry point, in fixed form and without the
C     module, as programs of old call it. Values are 1/8, 2/8, ... in
C     the order in which they are used. NFAIL counts what went wrong.
      SUBROUTINE FIXED_BODY(NFAIL)
      IMPLICIT NONE
      INTEGER NFAIL
      INTEGER M, I, J, K, N, IERR, IDS(8)
      PARAMETER (M = 3)
      DOUBLE PRECISION V(9), V3(M,3), V5(M,3,M), V8(3,3,M), V9(3,3,M,M)
      DOUBLE PRECISION ONES(M), S(6)
      CHARACTER*80 TITLE, COMMNT
      CHARACTER*20 UNIT
      NFAIL = 0
      CALL RESET_VALUES
      CALL ZEL_CREATE(8, M, IERR)
      NFAIL = NFAIL + IERR
      TITLE = 'Cube of eight nodes'
      COMMNT = 'built by Fortran'
      CALL ZEL_SET_HEADER(TITLE, 'cube.f', 'FORTRAN ', COMMNT, ' ',
     &                    'last', IERR)
      NFAIL = NFAIL + IERR
      UNIT = 'mm'
      CALL ZEL_SET_UNITS('KILOGRAM', UNIT, 's  ', 'N', IERR)
      NFAIL = NFAIL + IERR
      DO 10 N = 11, 18
        IDS(N-10) = N
        CALL FILL(V, 3)
        IF (MOD(N, 2) .EQ. 0) THEN
          CALL ZEL_SET_NODE_COORDINATES(N, V(1), V(2), V(3), IERR)
        ELSE
          CALL ZEL_SET_NODE_COORDINATES_VEC(N, V, IERR)
        END IF
        NFAIL = NFAIL + IERR
        CALL FILL(V, 1)
        CALL ZEL_SET_NODAL_MASS(N, V(1), IERR)
        NFAIL = NFAIL + IERR
   10 CONTINUE
      CALL FILL(V, 6)
      CALL ZEL_SET_NODAL_INERTIA(11, V(1), V(2), V(3), V(4), V(5), V(6),
     &                           IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 6)
      CALL ZEL_SET_NODAL_INERTIA_VEC(12, V, IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 1)
      CALL ZEL_SET_NODAL_INERTIA_ENTRY(13, 4, 6, V(1), IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 9)
      V(4) = V(2)
      V(7) = V(3)
      V(8) = V(6)
      CALL ZEL_SET_NODAL_INERTIA_MAT(14, V, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_INTERFACE_NODE(18, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE(4, IDS, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_2(11, 15, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_3(11, 12, 16, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_4(12, 13, 17, 16, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_5(11, 12, 13, 14, 15, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_6(11, 12, 13, 14, 15, 16, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_7(11, 12, 13, 14, 15, 16, 17, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_FACE_8(11, 12, 13, 14, 15, 16, 17, 18, IERR)
      NFAIL = NFAIL + IERR
      DO 30 I = 1, M
        DO 20 N = 11, 18
          CALL FILL(V, 6)
          IF (I .EQ. 1) THEN
            CALL ZEL_SET_MODE_SHAPE(I, N, V(1), V(2), V(3), V(4), V(5),
     &                              V(6), IERR)
          ELSE
            CALL ZEL_SET_MODE_SHAPE_VEC(I, N, V, IERR)
          END IF
          NFAIL = NFAIL + IERR
   20   CONTINUE
        CALL FILL(V, 1)
        CALL ZEL_SET_MODE_SHAPE_ENTRY(I, 18, 6, V(1), IERR)
        NFAIL = NFAIL + IERR
        CALL FILL(V, 6)
        CALL ZEL_SET_MODAL_STRESS(I, 17, V(1), V(2), V(3), V(4), V(5),
     &                            V(6), IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_GET_MODAL_STRESS(I, 17, S(1), S(2), S(3), S(4), S(5),
     &                            S(6), IERR)
        NFAIL = NFAIL + IERR
        DO 25 K = 1, 6
          IF (DABS(S(K)-V(K)) .GT. 0D0) NFAIL = NFAIL + 1
   25   CONTINUE
        CALL FILL(V, 6)
        CALL ZEL_SET_MODAL_STRESS_VEC(I, 12, V, IERR)
        NFAIL = NFAIL + IERR
        CALL FILL(V, 6)
        CALL ZEL_SET_MODAL_STRAIN(I, 13, V(1), V(2), V(3), V(4), V(5),
     &                            V(6), IERR)
        NFAIL = NFAIL + IERR
        CALL FILL(V, 6)
        CALL ZEL_SET_MODAL_STRAIN_VEC(I, 14, V, IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_GET_MODAL_STRAIN(I, 14, S(1), S(2), S(3), S(4), S(5),
     &                            S(6), IERR)
        NFAIL = NFAIL + IERR
        DO 27 K = 1, 6
          IF (DABS(S(K)-V(K)) .GT. 0D0) NFAIL = NFAIL + 1
   27   CONTINUE
   30 CONTINUE
      CALL FILL(V, 6)
      CALL ZEL_SET_MODAL_STRESS_VEC(0, 17, V, IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 6)
      CALL ZEL_SET_MODAL_STRAIN_VEC(0, 14, V, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_GET_MODE_COUNT(N, IERR)
      NFAIL = NFAIL + IERR
      IF (N .NE. M) NFAIL = NFAIL + 1
      DO 40 I = 1, M
        ONES(I) = 1D0
        CALL FILL(V, 5)
        CALL ZEL_SET_GENERALIZED_STIFFNESS(I, I, V(1), IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_SET_GENERALIZED_DAMPING(I, 1, V(2), IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_SET_MODAL_PRELOAD(I, V(3), IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_SET_MODAL_LOAD(1, I, V(4), IERR)
        NFAIL = NFAIL + IERR
        CALL ZEL_SET_MODAL_LOAD(3, I, V(5), IERR)
        NFAIL = NFAIL + IERR
   40 CONTINUE
      CALL ZEL_SET_LOADCASE_LABEL(1, TITLE, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_LOADCASE_LABEL(2, '   ', IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 1)
      CALL ZEL_SET_INVAR1(V, IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 3)
      CALL ZEL_SET_INVAR2(V, IERR)
      NFAIL = NFAIL + IERR
      DO 50 K = 1, 3
        CALL FILL(V3(1,K), M)
   50 CONTINUE
      CALL ZEL_SET_INVAR3(V3, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_INVAR4(V3, IERR)
      NFAIL = NFAIL + IERR
      DO 70 I = 1, M
        DO 60 K = 1, 3
          CALL FILL(V5(1,K,I), M)
   60   CONTINUE
   70 CONTINUE
      CALL ZEL_SET_INVAR5(V5, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_INVAR6(ONES, IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(V, 9)
      CALL ZEL_SET_INVAR7(V, IERR)
      NFAIL = NFAIL + IERR
      DO 80 I = 1, M
        CALL FILL(V8(1,1,I), 9)
   80 CONTINUE
      CALL ZEL_SET_INVAR8(V8, IERR)
      NFAIL = NFAIL + IERR
      DO 100 I = 1, M
        DO 90 J = 1, M
          CALL FILL(V9(1,1,J,I), 9)
   90   CONTINUE
  100 CONTINUE
      CALL ZEL_SET_INVAR9(V9, IERR)
      NFAIL = NFAIL + IERR
      CALL ZEL_SET_GENERALIZED_MASS(1, 1, 1D0, IERR)
      NFAIL = NFAIL + IERR
      CALL FILL(S, 4)
      CALL FILL(V, 9)
      CALL ZEL_SET_GLOBAL_MASS(S(1), S(2), V, IERR)
      NFAIL = NFAIL + IERR
      END

C     The next N values.
      SUBROUTINE FILL(V, N)
      IMPLICIT NONE
      INTEGER N, K
      DOUBLE PRECISION V(N), LAST
      COMMON /VALUES/ LAST
      DO 10 K = 1, N
        LAST = LAST + 0.125D0
        V(K) = LAST
   10 CONTINUE
      END

      SUBROUTINE RESET_VALUES
      IMPLICIT NONE
      DOUBLE PRECISION LAST
      COMMON /VALUES/ LAST
      LAST = 0D0
      END

C     Eigenvalues of the pair ((2 1) (1 2)), identity.
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
