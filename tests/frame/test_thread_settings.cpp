// SPDX-License-Identifier: BSD-3-Clause
// The answers of the sequential form, which settings do not change, and the settings themselves as they are parsed.
// This program brings the file that counts processes per node, to see its static.
#include "frame/service/mpi_ppn.cpp"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "frame/service/machine_census.h"
#include "tests/support/child.h"

namespace
{
using environment = std::map<std::string, std::string>;

// Runs body in a child with these settings and none of the caller's.
void with_settings(environment settings, const std::function<void()> &body)
{
    for (const char *name : {"TESH_NUM_THREADS", "TESH_NUM_STRIPES", "TESH_DOMAIN_NUM_THREADS", "TESH_DYNAMIC",
                             "TESH_MPI_PPN", "OV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "OV_MPI_PIN_MAPPING",
                             "OMPI_COMM_WORLD_LOCAL_SIZE", "MPI_LOCALNRANKS"})
        settings.emplace(name, "");
    const auto child = tesh_test::run_forked(
        [&] {
            body();
            return testing::Test::HasFailure() ? 1 : 0;
        },
        settings);
    EXPECT_EQ(child.exit_code, 0) << child.out;
    EXPECT_EQ(child.err, "");
}

void expect_threads(const char *variable, const std::string &text, const int32_t *slot, int32_t value)
{
    with_settings({{variable, text}}, [&] {
        thread_settings_read();
        EXPECT_EQ(*slot, value) << variable << "=" << text;
    });
}

void expect_ppn(const environment &settings, int32_t count)
{
    with_settings(settings, [&] {
        EXPECT_EQ(mpi_ppn, 0);
        tesh_serv_mpi_get_ppn();
        EXPECT_EQ(mpi_ppn, count) << (settings.empty() ? "" : settings.begin()->second);
    });
}
} // namespace

TEST(thread_answers, are_those_of_one_thread)
{
    for (const char *threads : {"", "8"}) {
        with_settings({{"TESH_NUM_THREADS", threads}, {"TESH_DYNAMIC", "FALSE"}}, [] {
            TESH_Read_ThreadENV_Count_Cores();
            for (int repetition = 0; repetition < 2; ++repetition) {
                EXPECT_EQ(tesh_serv_get_max_threads(), 1);
                for (const int32_t domain : {-1, 0, 1, 5, 100}) {
                    EXPECT_EQ(tesh_serv_domain_get_max_threads(domain), 1);
                    EXPECT_EQ(tesh_serv_domain_set_num_threads(16, domain), 1);
                }
                EXPECT_EQ(tesh_serv_set_num_threads_local(7), 1);
                EXPECT_EQ(tesh_serv_get_dynamic(), 1);
                EXPECT_EQ(tesh_serv_get_num_stripes(), 1);
                EXPECT_EQ(tesh_serv_get_thread_layer(), 1);
                EXPECT_EQ(tesh_serv_omp_in_parallel(), 0);
                tesh_serv_set_num_threads(9);
                tesh_serv_set_dynamic(0);
                tesh_serv_set_num_stripes(3);
                tesh_serv_mpi_safe();
            }
        });
    }
}

TEST(thread_settings, start_unset)
{
    with_settings({}, [] {
        for (const int32_t *slot :
             {&__tesh_num_threads, &__tesh_num_stripes, &__tesh_blas_num_threads, &__tesh_fft_num_threads,
              &__tesh_vml_num_threads, &__tesh_pardiso_num_threads, &__tesh_lapack_num_threads})
            EXPECT_EQ(*slot, -1);
        EXPECT_EQ(__tesh_dynamic, -1);
        thread_settings_read();
        EXPECT_EQ(__tesh_num_threads, -1);
        EXPECT_EQ(__tesh_num_stripes, -1);
        EXPECT_EQ(__tesh_dynamic, 1);
    });
}

TEST(thread_settings, num_threads)
{
    struct {
        const char *text;
        int32_t value;
    } const rows[] = {{"8", 8},  {"0", -1}, {"1", 1},
                      {"x", 1},  {"8x", 1}, {"-3", 1},
                      {" 8", 1}, {"4 ", 1}, {"99999999999999", 2147483647},
                      {"007", 7}};
    for (const auto &row : rows)
        expect_threads("TESH_NUM_THREADS", row.text, &__tesh_num_threads, row.value);
    expect_threads("TESH_NUM_THREADS", std::string(256, '1'), &__tesh_num_threads, -1);
}

TEST(thread_settings, num_stripes)
{
    struct {
        const char *text;
        int32_t value;
    } const rows[] = {{"4", 4}, {"0", 0}, {"x", -1}, {"4x", -1}, {"-1", -1}};
    for (const auto &row : rows)
        expect_threads("TESH_NUM_STRIPES", row.text, &__tesh_num_stripes, row.value);
}

TEST(thread_settings, a_value_that_stands_already_stays)
{
    with_settings({{"TESH_NUM_THREADS", "8"}, {"TESH_NUM_STRIPES", "4"}, {"TESH_DYNAMIC", "FALSE"}}, [] {
        __tesh_num_threads = __tesh_num_stripes = 0;
        __tesh_dynamic = 1;
        thread_settings_read();
        EXPECT_EQ(__tesh_num_threads, 0);
        EXPECT_EQ(__tesh_num_stripes, 0);
        EXPECT_EQ(__tesh_dynamic, 1);
    });
}

TEST(thread_settings, domains)
{
    constexpr const char *list = "TESH_DOMAIN_NUM_THREADS";
    struct {
        const char *text;
        int32_t all, blas, fft, vml, pardiso, lapack;
    } const rows[] = {
        {"TESH_DOMAIN_BLAS=4", -1, 4, -1, -1, -1, -1},
        {"TESH_DOMAIN_ALL=2, TESH_DOMAIN_FFT=3", 2, -1, 3, -1, -1, -1},
        {"\"TESH_DOMAIN_VML=5\";'TESH_DOMAIN_PARDISO=6':TESH_DOMAIN_LAPACK=7", -1, -1, -1, 5, 6, 7},
        {"TESH_DOMAIN_BLAS 4", -1, 4, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS = = 4", -1, 4, -1, -1, -1, -1},
        {",;: TESH_DOMAIN_BLAS=4", -1, 4, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS=x", -1, 1, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS=", -1, 1, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS", -1, 1, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS=,TESH_DOMAIN_FFT=2", -1, 1, 2, -1, -1, -1},
        {"TESH_DOMAIN_BLAS=0", -1, -1, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLAS=4 TESH_DOMAIN_BLAS=5", -1, 4, -1, -1, -1, -1},
        {"OTHER=9,TESH_DOMAIN_FFT=3", -1, -1, 3, -1, -1, -1},
        {"TESH_DOMAIN_BLAS,4", -1, -1, -1, -1, -1, -1}, // a comma is part of a name
        {"TESH_DOMAIN_BLASX=4", -1, -1, -1, -1, -1, -1},
        {"TESH_DOMAIN_BLA=4", -1, -1, -1, -1, -1, -1},
        {"=4,TESH_DOMAIN_BLAS=4", -1, -1, -1, -1, -1, -1}, // an empty name ends the walk
        {"tesh_domain_blas=4", -1, -1, -1, -1, -1, -1},
        {" ", -1, -1, -1, -1, -1, -1},
    };
    for (const auto &row : rows) {
        with_settings({{list, row.text}}, [&] {
            thread_settings_read();
            EXPECT_EQ(__tesh_num_threads, row.all) << row.text;
            EXPECT_EQ(__tesh_blas_num_threads, row.blas) << row.text;
            EXPECT_EQ(__tesh_fft_num_threads, row.fft) << row.text;
            EXPECT_EQ(__tesh_vml_num_threads, row.vml) << row.text;
            EXPECT_EQ(__tesh_pardiso_num_threads, row.pardiso) << row.text;
            EXPECT_EQ(__tesh_lapack_num_threads, row.lapack) << row.text;
        });
    }
    with_settings({{list, "TESH_DOMAIN_ALL=2"}, {"TESH_NUM_THREADS", "8"}}, [] {
        thread_settings_read();
        EXPECT_EQ(__tesh_num_threads, 8) << "the first setting stands";
    });
}

TEST(thread_settings, dynamic)
{
    struct {
        const char *text;
        int32_t value;
    } const rows[] = {{"FALSE", 0}, {"false", 0},  {"\"FALSE\"", 0}, {" 'false' x", 0}, {"FALSE TRUE", 0}, {"False", 1},
                      {"TRUE", 1},  {"FALSEx", 1}, {"0", 1},         {" ", 1},          {"FALSE,", 1}};
    for (const auto &row : rows)
        expect_threads("TESH_DYNAMIC", row.text, &__tesh_dynamic, row.value);
}

TEST(mpi_processes_per_node, each_launchers_variable)
{
    expect_ppn({}, -1);
    for (const char *name : {"TESH_MPI_PPN", "OV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "OMPI_COMM_WORLD_LOCAL_SIZE"}) {
        expect_ppn({{name, "4"}}, 4);
        expect_ppn({{name, "1"}}, 1);
        expect_ppn({{name, "010"}}, 10);
        for (const char *bad : {"0", "-2", "4x", "x", "4:0"})
            expect_ppn({{name, bad}}, -1);
    }
    expect_ppn({{"OV_MPI_PIN_MAPPING", "4:0 1 2 3"}}, 4);
    for (const char *bad : {"4", "0:0", "-4:0", ":4", "x:4", "4 :0"})
        expect_ppn({{"OV_MPI_PIN_MAPPING", bad}}, -1);
    expect_ppn({{"OV_MPI_PIN_MAPPING", "1:0"}}, 1);
    expect_ppn({{"MPI_LOCALNRANKS", "4"}}, 4);
    expect_ppn({{"MPI_LOCALNRANKS", "1"}}, 1);
    for (const char *bad : {"0", "-2", "4x"})
        expect_ppn({{"MPI_LOCALNRANKS", bad}}, -1);
}

TEST(mpi_processes_per_node, the_first_positive_answer_ends_the_search)
{
    expect_ppn({{"OV_MPI_PIN_MAPPING", "4:0 1 2 3"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "7"}, {"MPI_LOCALNRANKS", "8"}}, 4);
    expect_ppn({{"TESH_MPI_PPN", "x"}, {"OV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "3"}, {"OV_MPI_PIN_MAPPING", "4:0"}},
               3);
    expect_ppn({{"TESH_MPI_PPN", "2"}, {"OV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "3"}}, 2);
    expect_ppn({{"OV_MPI_PIN_MAPPING", "4"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "0"}, {"MPI_LOCALNRANKS", "8"}}, 8);
}

TEST(mpi_processes_per_node, are_asked_for_once)
{
    with_settings({{"TESH_MPI_PPN", "2"}}, [] {
        tesh_serv_mpi_get_ppn();
        setenv("TESH_MPI_PPN", "3", 1);
        tesh_serv_mpi_get_ppn();
        EXPECT_EQ(mpi_ppn, 2);
    });
}
