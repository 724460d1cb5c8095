C     Writes the body to the file that the command line names.
      PROGRAM FIXED_PROGRAM
      IMPLICIT NONE
      CHARACTER*80 NAME
      INTEGER NFAIL, IERR
      CALL GETARG(1, NAME)
      CALL FIXED_BODY(NFAIL)
      CALL ZEL_WRITE_ZEL(NAME, IERR)
      IF (NFAIL + IERR .NE. 0) CALL EXIT(1)
      CALL ZEL_TERMINATE(IERR)
      CALL EXIT(IERR)
      END
