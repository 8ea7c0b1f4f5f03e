/* Drives two channels by hand in one loop: two messages at the same time, without a thread.
 *
 *   manual SERVER PORT FROM TO1 TO2 TEXTFILE */
#include "tell.h"

enum { Jobs = 2, AddressSize = 259, NameSize = 4096 };

enum Step { STEP_CONNECT, STEP_SEND, STEP_LEAVE, STEP_DONE };

struct Job {
    uint32_t Channel;
    char To[AddressSize];
    enum Step Step;     /* under way */
    int32_t LastState;  /* what rynDriver told last */
    uint32_t LastBytes; /* moved until then */
    int HasFailed;
};

struct Mail {
    const char* Server;
    uint32_t Port;
    char From[AddressSize];
    char Text[NameSize]; /* '@' and the name of a file */
};

/* Begins the job's step. All texts are copied: none has to live on. */
static int32_t Begin(const struct Job* job, const struct Mail* mail)
{
    switch (job->Step) {
    case STEP_CONNECT:
        return rynSmtpConnect(job->Channel, mail->Server, mail->From, NULL);
    case STEP_SEND:
        return rynSendEmail(job->Channel, job->To, NULL, NULL, "Hello", mail->Text, NULL);
    case STEP_LEAVE:
        return rynClose(job->Channel);
    default:
        return 0;
    }
}

static void End(struct Job* job, int32_t status)
{
    if (status < 0) {
        Tell(job->Channel, job->To, status);
        job->HasFailed = job->Step < STEP_LEAVE; /* behind the message it is sent all the same */
    }
    rynAbort(job->Channel); /* by hand, rynClose leaves the socket open */
    job->Step = STEP_DONE;
}

/* One call of the driver. True if it has moved something. */
static int Advance(struct Job* job, const struct Mail* mail)
{
    int32_t state = rynDriver(job->Channel);
    if (state > 0) {
        const uint32_t bytes = (uint32_t)rynStatistics(job->Channel, RYN_STAT_BYTES_OUT);
        const int moves =
            state != DRIVER_NOT_YET && (state != job->LastState || bytes != job->LastBytes);
        job->LastState = state;
        job->LastBytes = bytes;
        return moves;
    }
    if (state == 0 && job->Step != STEP_LEAVE) {
        job->Step = (enum Step)(job->Step + 1);
        state = Begin(job, mail);
        if (state >= 0)
            return 1;
    }
    End(job, state);
    return 1;
}

/* Runs all jobs to their ends. Where none moves, the servers are waited for. */
static void DriveAll(struct Job* jobs, const struct Mail* mail)
{
    for (int open = Jobs; open > 0;) {
        int moves = 0;
        open = 0;
        for (int i = 0; i < Jobs; i++) {
            if (jobs[i].Step == STEP_DONE)
                continue;
            moves += Advance(&jobs[i], mail);
            open++;
        }
        if (moves == 0)
            rynSleep(5); /* a host with other work does it here */
    }
}

int main(int count, char** words)
{
    struct Job jobs[Jobs] = { { .Channel = 0 }, { .Channel = 1 } };
    struct Mail mail = { .Server = "" };
    if (count != 7) {
        fputs("usage: manual SERVER PORT FROM TO1 TO2 TEXTFILE\n", stderr);
        return 2;
    }
    if (!MakeAddress(mail.From, AddressSize, words[3]) ||
        !MakeAddress(jobs[0].To, AddressSize, words[4]) ||
        !MakeAddress(jobs[1].To, AddressSize, words[5]))
        return 1;
    mail.Server = words[1];
    mail.Port = (uint32_t)strtoul(words[2], NULL, 10);
    snprintf(mail.Text, NameSize, "@%s", words[6]);
    const int32_t status = rynAttach(Jobs);
    if (status < 0)
        return Tell(0, "starting", status);
    for (int i = 0; i < Jobs; i++) {
        rynIntegerParam(jobs[i].Channel, RYN_AUTO_CALL_DRIVER, 0);
        rynIntegerParam(jobs[i].Channel, RYN_BLOCKING_CONNECT, 0);
        rynIntegerParam(jobs[i].Channel, RYN_SMTP_PORT, mail.Port);
        const int32_t begun = Begin(&jobs[i], &mail);
        if (begun < 0)
            End(&jobs[i], begun);
    }
    DriveAll(jobs, &mail);
    rynRelease();
    return jobs[0].HasFailed || jobs[1].HasFailed;
}
