/* An independent ICE peer on libnice, with the same command line and output as `mediasession
 * ice-peer`:
 *
 *   nice_peer --role controlling|controlled --out FILE --in FILE [--local ADDR]... [--aggressive]
 *
 * --aggressive keeps libnice's own default, aggressive nomination (every check of the controlling side
 * carries USE-CANDIDATE); otherwise it nominates as our agent does, regular.
 *
 * Gathers host candidates on the given addresses (127.0.0.1 by default), writes its description to
 * FILE (through FILE.tmp and a rename, so the other side never reads half of it), waits for the other
 * side's description, runs ICE, prints the selected pair as one JSON line, then trades datagrams with
 * the peer over it. Exit 0 once the peer's datagram arrived, 1 on failure or after 15 s.
 *
 * The exchange all peers share: "ice-peer data got=0" every 50 ms after the conclusion, "got=1" once
 * the peer's datagram arrived. A peer leaves when it has the other's datagram and hears got=1, or
 * 1 s after the other's first datagram: the other side may still be concluding, and datagrams that
 * reach it before that may be dropped, hence the repeats. */
#include <nice/agent.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define GIVE_UP_MS 15000
#define POLL_IN_MS 5
#define RESEND_MS 50
#define LINGER_MS 1000

struct peer {
    GMainLoop *loop;
    NiceAgent *agent;
    guint stream;
    const char *out_path;
    const char *in_path;
    gint64 both_known_us; /* when the remote description was read: the clock of conclusion_ms */
    gboolean ready;
    gboolean got_theirs;  /* a datagram of the peer arrived */
    gboolean they_got;    /* the peer said it has ours */
    gint64 got_at_us;
    int status;
};

static void finish(struct peer *p, int status)
{
    p->status = status;
    g_main_loop_quit(p->loop);
}

static void send_datagram(struct peer *p)
{
    char text[64];
    int n = snprintf(text, sizeof text, "ice-peer data got=%d", p->got_theirs ? 1 : 0);
    nice_agent_send(p->agent, p->stream, 1, (guint)n, text);
}

static gboolean write_atomically(const char *path, const char *text)
{
    char *tmp = g_strdup_printf("%s.tmp", path);
    gboolean ok = g_file_set_contents(tmp, text, -1, NULL) && rename(tmp, path) == 0;
    g_free(tmp);
    return ok;
}

static gboolean poll_in_file(gpointer data)
{
    struct peer *p = data;
    gchar *text = NULL;
    if (!g_file_get_contents(p->in_path, &text, NULL, NULL)) return G_SOURCE_CONTINUE;
    p->both_known_us = g_get_monotonic_time();
    int added = nice_agent_parse_remote_sdp(p->agent, text);
    g_free(text);
    if (added <= 0) {
        fprintf(stderr, "nice_peer: no usable candidate in %s\n", p->in_path);
        finish(p, 1);
    }
    return G_SOURCE_REMOVE;
}

static void on_gathering_done(NiceAgent *agent, guint stream, gpointer data)
{
    struct peer *p = data;
    gchar *sdp = nice_agent_generate_local_sdp(agent);
    gboolean ok = write_atomically(p->out_path, sdp);
    g_free(sdp);
    if (!ok) {
        fprintf(stderr, "nice_peer: cannot write %s\n", p->out_path);
        finish(p, 1);
        return;
    }
    (void)stream;
    g_timeout_add(POLL_IN_MS, poll_in_file, p);
}

static void address_text(const NiceAddress *a, char *out, size_t size)
{
    char ip[NICE_ADDRESS_STRING_LEN];
    nice_address_to_string(a, ip);
    if (nice_address_ip_version(a) == 6) snprintf(out, size, "[%s]:%u", ip, nice_address_get_port(a));
    else snprintf(out, size, "%s:%u", ip, nice_address_get_port(a));
}

static const char *type_text(NiceCandidateType t)
{
    switch (t) {
    case NICE_CANDIDATE_TYPE_HOST: return "host";
    case NICE_CANDIDATE_TYPE_SERVER_REFLEXIVE: return "srflx";
    case NICE_CANDIDATE_TYPE_PEER_REFLEXIVE: return "prflx";
    case NICE_CANDIDATE_TYPE_RELAYED: return "relay";
    }
    return "none";
}

static gboolean resend(gpointer data)
{
    struct peer *p = data;
    send_datagram(p);
    if (p->got_theirs && g_get_monotonic_time() - p->got_at_us > LINGER_MS * 1000) finish(p, 0);
    return G_SOURCE_CONTINUE;
}

static void on_state(NiceAgent *agent, guint stream, guint component, guint state, gpointer data)
{
    struct peer *p = data;
    if (state == NICE_COMPONENT_STATE_FAILED) {
        fprintf(stderr, "nice_peer: ICE failed\n");
        finish(p, 1);
        return;
    }
    if (state != NICE_COMPONENT_STATE_READY || p->ready) return;
    NiceCandidate *local = NULL, *remote = NULL;
    if (!nice_agent_get_selected_pair(agent, stream, component, &local, &remote)) return;
    p->ready = TRUE;
    char l[80], r[80];
    address_text(&local->addr, l, sizeof l);
    address_text(&remote->addr, r, sizeof r);
    printf("{\"local\":\"%s\",\"remote\":\"%s\",\"local_type\":\"%s\",\"remote_type\":\"%s\","
           "\"conclusion_ms\":%lld}\n",
           l, r, type_text(local->type), type_text(remote->type),
           (long long)((g_get_monotonic_time() - p->both_known_us) / 1000));
    fflush(stdout);
    send_datagram(p);
    if (p->they_got) finish(p, 0);
    else g_timeout_add(RESEND_MS, resend, p);
}

static void on_receive(NiceAgent *agent, guint stream, guint component, guint len, gchar *buf, gpointer data)
{
    struct peer *p = data;
    (void)agent, (void)stream, (void)component;
    if (!p->got_theirs) p->got_at_us = g_get_monotonic_time();
    p->got_theirs = TRUE;
    if (len >= 5 && memcmp(buf + len - 5, "got=1", 5) == 0) p->they_got = TRUE;
    if (p->ready && p->they_got) {
        send_datagram(p); /* tells the peer that its datagram arrived too */
        finish(p, 0);
    }
}

static gboolean give_up(gpointer data)
{
    struct peer *p = data;
    fprintf(stderr, "nice_peer: no conclusion within %d ms\n", GIVE_UP_MS);
    finish(p, 1);
    return G_SOURCE_REMOVE;
}

static int usage(void)
{
    fprintf(stderr, "usage: nice_peer --role controlling|controlled --out FILE --in FILE [--local ADDR]..."
                    " [--aggressive]\n");
    return 2;
}

int main(int argc, char **argv)
{
    struct peer p = {0};
    const char *role = NULL;
    GPtrArray *locals = g_ptr_array_new();
    NiceAgentOption nomination = NICE_AGENT_OPTION_REGULAR_NOMINATION;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--aggressive") == 0) {
            nomination = NICE_AGENT_OPTION_NONE;
            continue;
        }
        if (i + 1 >= argc) return usage();
        if (strcmp(argv[i], "--role") == 0) role = argv[++i];
        else if (strcmp(argv[i], "--out") == 0) p.out_path = argv[++i];
        else if (strcmp(argv[i], "--in") == 0) p.in_path = argv[++i];
        else if (strcmp(argv[i], "--local") == 0) g_ptr_array_add(locals, argv[++i]);
        else return usage();
    }
    if (!role || !p.out_path || !p.in_path) return usage();
    if (strcmp(role, "controlling") != 0 && strcmp(role, "controlled") != 0) return usage();
    if (locals->len == 0) g_ptr_array_add(locals, "127.0.0.1");

    p.loop = g_main_loop_new(NULL, FALSE);
    p.agent = nice_agent_new_full(NULL, NICE_COMPATIBILITY_RFC5245, nomination);
    /* UDP host candidates only: the peers under test speak no ICE-TCP and must not look elsewhere. */
    g_object_set(p.agent, "controlling-mode", strcmp(role, "controlling") == 0, "ice-tcp", FALSE, "upnp", FALSE,
                 NULL);
    for (guint i = 0; i < locals->len; ++i) {
        NiceAddress a;
        if (!nice_address_set_from_string(&a, g_ptr_array_index(locals, i)) ||
            !nice_agent_add_local_address(p.agent, &a)) {
            fprintf(stderr, "nice_peer: bad local address %s\n", (char *)g_ptr_array_index(locals, i));
            return 1;
        }
    }
    p.stream = nice_agent_add_stream(p.agent, 1);
    g_signal_connect(p.agent, "candidate-gathering-done", G_CALLBACK(on_gathering_done), &p);
    g_signal_connect(p.agent, "component-state-changed", G_CALLBACK(on_state), &p);
    nice_agent_attach_recv(p.agent, p.stream, 1, g_main_loop_get_context(p.loop), on_receive, &p);
    p.status = 1;
    if (!nice_agent_gather_candidates(p.agent, p.stream)) {
        fprintf(stderr, "nice_peer: gathering failed\n");
        return 1;
    }
    g_timeout_add(GIVE_UP_MS, give_up, &p);
    g_main_loop_run(p.loop);
    if (p.status == 0 && !p.got_theirs) p.status = 1;
    g_object_unref(p.agent);
    g_main_loop_unref(p.loop);
    g_ptr_array_free(locals, TRUE);
    return p.status;
}
